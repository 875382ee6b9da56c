#include "catalogue/component_base.h"

namespace kx::catalogue {

ComponentBase::~ComponentBase() = default;

}  // namespace kx::catalogue
