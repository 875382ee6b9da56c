#include "kx/tal/osdep/thread.h"

#include <cxxabi.h>

#include <exception>

#include "kx/tal/exception/exception.h"
#include "kx/tal/exception/os_exception.h"
#include "kx/tal/log.h"

namespace kx::tal::osdep {

Thread::~Thread() {
  if (joinable_) ::pthread_join(handle_, nullptr);
}

void Thread::Start(const std::string& name) {
  if (joinable_) KX_THROW(exception::InvalidOperation);
  name_ = name.substr(0, kMaxNameLength);
  running_.store(true, std::memory_order_release);
  const int error = ::pthread_create(&handle_, nullptr, &Thread::Run, this);
  if (error != 0) {
    running_.store(false, std::memory_order_release);
    KX_THROW(PosixError, error);
  }
  joinable_ = true;
}

int Thread::Join() {
  if (!joinable_) KX_THROW(exception::InvalidOperation);
  const int error = ::pthread_join(handle_, nullptr);
  if (error != 0) KX_THROW(PosixError, error);
  joinable_ = false;
  return result_;
}

void* Thread::Run(void* arg) {
  auto* self = static_cast<Thread*>(arg);
  // Named from inside, so the name is in place before proc() runs.
  ::pthread_setname_np(::pthread_self(), self->name_.c_str());
  int result = kExceptionResult;
  // An exception must not take the whole process down with it.
  try {
    result = self->proc();
  } catch (const abi::__forced_unwind&) {
    throw;  // thread cancellation unwinds through here and must go on
  } catch (const std::exception& e) {
    KX_LOG(logmask::kError, "Thread " + self->name_ + " ended by an exception: " + e.what());
  } catch (...) {
    KX_LOG(logmask::kError, "Thread " + self->name_ + " ended by an unknown exception");
  }
  self->result_ = result;
  // Last touch of the object: once this is seen, the owner may destroy it.
  self->running_.store(false, std::memory_order_release);
  return nullptr;
}

}  // namespace kx::tal::osdep
