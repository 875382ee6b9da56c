// Drives the built plug-in through its exported entry points, as a host does.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "platform/webruntime/web_runtime.h"
#include "tests/support/scratch_root.h"

using kx::webruntime::MemoryRequest;
using kx::webruntime::RequestRegistration;
using kx::webruntime::WebRequest;

namespace {

class PluginLibrary : public testing::Test {
 protected:
  void SetUp() override {
    library_ = ::dlopen(KX_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library_, nullptr) << ::dlerror();
    init_ = reinterpret_cast<void (*)()>(::dlsym(library_, "orlaInit"));
    run_ = reinterpret_cast<void (*)(WebRequest*, uint32_t)>(::dlsym(library_, "orlaRun"));
    pause_ = reinterpret_cast<int32_t (*)(int32_t)>(::dlsym(library_, "orlaPause"));
    resume_ = reinterpret_cast<int32_t (*)(int32_t)>(::dlsym(library_, "orlaResume"));
    finalize_ = reinterpret_cast<void (*)()>(::dlsym(library_, "orlaFinalize"));
    ASSERT_TRUE(init_ && run_ && pause_ && resume_ && finalize_);
    init_();
  }
  void TearDown() override {
    if (finalize_) finalize_();
    if (library_) ::dlclose(library_);
  }

  MemoryRequest Run(const std::string& method) {
    MemoryRequest request;
    RequestRegistration registration(request);
    WebRequest object("/swinstall/" + method, method);
    run_(&object, registration.Handle());
    return request;
  }

  kx::test::ScratchRoot root;
  void* library_ = nullptr;
  void (*init_)() = nullptr;
  void (*run_)(WebRequest*, uint32_t) = nullptr;
  int32_t (*pause_)(int32_t) = nullptr;
  int32_t (*resume_)(int32_t) = nullptr;
  void (*finalize_)() = nullptr;
};

}  // namespace

TEST_F(PluginLibrary, AnswersUnknownNamesAndStubs) {
  const MemoryRequest unknown = Run("browse");
  EXPECT_EQ(unknown.status, 501);
  EXPECT_EQ(unknown.Header("Reason-Phrase"), "Unimplemented");
  EXPECT_EQ(unknown.output, "");
  const MemoryRequest stub = Run("Resolve");
  EXPECT_EQ(stub.status, 500);
  EXPECT_EQ(stub.output, "");
  EXPECT_EQ(pause_(-7), -7);
  EXPECT_EQ(resume_(12345), 12345);
}

TEST_F(PluginLibrary, EightThreadsOfAThousandRequests) {
  std::atomic<int> answered{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 1000; ++i) {
        const bool stub = (i + t) % 2 == 0;
        const MemoryRequest reply = Run(stub ? "Browse" : "Unknown");
        if (reply.status == (stub ? 500 : 501)) ++answered;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(answered, 8000);
}

TEST_F(PluginLibrary, AnUnknownRequestHandleCrashesNothing) {
  WebRequest object("/swinstall/Ping", "Ping");
  run_(&object, 0xDEADBEEF);
  SUCCEED();
}
