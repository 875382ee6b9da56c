#include "catalogue/software_set.h"

namespace kx::catalogue {

SoftwareSet::~SoftwareSet() = default;

}  // namespace kx::catalogue
