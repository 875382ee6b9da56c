#include "platform/webruntime/web_runtime.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <thread>

#include "tests/support/scratch_root.h"

using namespace kx::webruntime;

// Form fields in order with duplicates; a body longer than the buffer reports the
// size it needs; the response goes to the back-end.
TEST(WebRuntime, RequestAndResponsePassTheBackend) {
  MemoryRequest request;
  request.form = {{"ActionID", "A1"}, {"Options", "8"}, {"ActionID", "A2"}};
  request.body = std::string(1025, 'x');
  RequestRegistration registration(request);
  const uint32_t handle = registration.Handle();
  KeyValuePairList list;
  ASSERT_EQ(ReadAllFormData_C_REST_VELO_(handle, &list), 0);
  std::vector<std::string> seen;
  for (const KeyValuePair* pair = KeyValuePairList_GetFirst(&list); pair; pair = pair->next) {
    seen.push_back(std::string(pair->name) + "=" + pair->value);
  }
  EXPECT_EQ(seen, (std::vector<std::string>{"ActionID=A1", "Options=8", "ActionID=A2"}));

  char small[1024];
  uint32_t size = sizeof small;
  EXPECT_EQ(ReadPostData_C_REST_VELO_(handle, small, &size, sizeof small), 1);
  EXPECT_EQ(size, 1025u);
  std::string big(size, '\0');
  EXPECT_EQ(ReadPostData_C_REST_VELO_(handle, big.data(), &size, size), 0);
  EXPECT_EQ(big, request.body);

  EXPECT_EQ(SetHTTPResponseCode_VELO_(handle, 501) | SetHTTPResponseMimeType_C_REST_VELO_(handle, "text/xml") |
                SetHTTPHeaderNameValue_C_REST_VELO_(handle, "Reason-Phrase", "Unimplemented") |
                WriteOutput_C_REST_VELO_(handle, "<a/>", 4),
            0);
  EXPECT_EQ(std::to_string(request.status) + " " + request.Header("Reason-Phrase") + " " + request.mimeType + " " +
                request.output,
            "501 Unimplemented text/xml <a/>");
}

TEST(WebRuntime, UnknownHandleFailsEverywhere) {
  uint32_t handle;
  {
    MemoryRequest request;
    RequestRegistration registration(request);
    handle = registration.Handle();
  }
  for (uint32_t bad : {0u, handle, 0xFFFFFFFFu}) {
    KeyValuePairList list;
    char buffer[4];
    uint32_t size = 4;
    UploadedFilesList* uploads = nullptr;
    EXPECT_LT(ReadAllFormData_C_REST_VELO_(bad, &list), 0);
    EXPECT_LT(ReadPostData_C_REST_VELO_(bad, buffer, &size, 4), 0);
    EXPECT_LT(ReadUploadedFilesList_C_REST_VELO_(bad, &uploads), 0);
    EXPECT_LT(WriteOutput_C_REST_VELO_(bad, "x", 1), 0);
    EXPECT_LT(SetHTTPResponseCode_VELO_(bad, 200), 0);
    EXPECT_LT(SetHTTPHeaderNameValue_C_REST_VELO_(bad, "a", "b"), 0);
    EXPECT_LT(SetHTTPResponseMimeType_C_REST_VELO_(bad, "text/xml"), 0);
  }
}

TEST(WebRuntime, UploadsAreListedAndLeftoversDeletedWhenTheRequestEnds) {
  kx::test::ScratchRoot root;
  root.WriteFile("/up/1", "one");
  root.WriteFile("/up/2", "two");
  MemoryRequest request;
  UploadedFilesList* list = nullptr;
  {
    RequestRegistration registration(request);
    ASSERT_EQ(ReadUploadedFilesList_C_REST_VELO_(registration.Handle(), &list), 0);
    EXPECT_EQ(list, nullptr);  // not an upload form

    request.uploadList = true;
    ASSERT_EQ(ReadUploadedFilesList_C_REST_VELO_(registration.Handle(), &list), 0);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(UploadedFilesList_GetFirst(list), nullptr);  // an upload form without files
    UploadedFilesList_Release(list);

    request.uploads = {{"cdf", "a.cdf", root / "/up/1", 3}, {"cdf", "b.cdf", root / "/up/2", 3}};
    ASSERT_EQ(ReadUploadedFilesList_C_REST_VELO_(registration.Handle(), &list), 0);
    const UploadedFile* first = UploadedFilesList_GetFirst(list);
    ASSERT_NE(first, nullptr);
    EXPECT_STREQ(first->fileName, "a.cdf");
    ASSERT_NE(first->next, nullptr);
    EXPECT_STREQ(first->next->localPath, (root / "/up/2").c_str());
    EXPECT_EQ(first->next->next, nullptr);
    UploadedFilesList_Release(list);
    ASSERT_EQ(::rename((root / "/up/1").c_str(), (root / "/kept").c_str()), 0);  // as an install would
  }
  EXPECT_NE(::access((root / "/kept").c_str(), F_OK), -1);
  EXPECT_EQ(::access((root / "/up/2").c_str(), F_OK), -1);
}

TEST(WebRuntime, MethodNameIsTheFourthVirtualEntry) {
  WebRequest request("/swinstall/Ping", "Ping");
  using NameFunction = const char* (*)(const void*);
  const auto* table = *reinterpret_cast<NameFunction const* const*>(&request);
  EXPECT_STREQ(table[3](&request), "Ping");
}

// A request may be answered, and its registration end, on a thread other than
// the one that registered it; its handle is unknown everywhere afterwards.
TEST(WebRuntime, HandlesHoldAcrossThreads) {
  MemoryRequest first;
  MemoryRequest second;
  auto outer = std::make_unique<RequestRegistration>(first);
  const uint32_t outerHandle = outer->Handle();
  auto inner = std::make_unique<RequestRegistration>(second);
  const uint32_t innerHandle = inner->Handle();

  std::thread([&] {
    EXPECT_EQ(WriteOutput_C_REST_VELO_(outerHandle, "a", 1), 0);
    EXPECT_EQ(WriteOutput_C_REST_VELO_(innerHandle, "b", 1), 0);
    inner.reset();
    EXPECT_LT(WriteOutput_C_REST_VELO_(innerHandle, "x", 1), 0);
  }).join();
  EXPECT_LT(WriteOutput_C_REST_VELO_(innerHandle, "x", 1), 0);
  EXPECT_EQ(WriteOutput_C_REST_VELO_(outerHandle, "c", 1), 0);

  std::thread([&] { outer.reset(); }).join();
  EXPECT_LT(WriteOutput_C_REST_VELO_(outerHandle, "x", 1), 0);
  EXPECT_EQ(first.output, "ac");
  EXPECT_EQ(second.output, "b");
}
