#include "ini_test_support.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace kx::ini::test {

ScratchDir::ScratchDir() {
  const char* base = std::getenv("TMPDIR");
  path_ = std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/ini_test_XXXXXX";
  if (::mkdtemp(path_.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  ::chmod(path_.c_str(), 0755);
}

ScratchDir::~ScratchDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

void WriteFile(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

std::string Render(Document& document) {
  std::FILE* stream = std::tmpfile();
  if (stream == nullptr) throw std::runtime_error("tmpfile failed");
  const int result = document.WriteToStream(stream, 0);
  std::string text(static_cast<size_t>(std::ftell(stream)), '\0');
  std::rewind(stream);
  text.resize(std::fread(text.data(), 1, text.size(), stream));
  std::fclose(stream);
  return result < 0 ? "error " + std::to_string(result) : text;
}

int RunAsNobody(const std::function<int()>& body) {
  int channel[2];
  if (::pipe(channel) != 0) return 1;
  const pid_t child = ::fork();
  if (child == 0) {
    int result = ::setgid(65534) == 0 && ::setuid(65534) == 0 ? body() : 1;
    ::_exit(::write(channel[1], &result, sizeof result) == sizeof result ? 0 : 1);
  }
  ::close(channel[1]);
  int result = 1;
  if (::read(channel[0], &result, sizeof result) != sizeof result) result = 1;
  ::close(channel[0]);
  ::waitpid(child, nullptr, 0);
  return result;
}

}  // namespace kx::ini::test
