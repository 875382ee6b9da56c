// Test helper: writes each argument to standard output, ended by NUL. With the
// one argument "--probe-streams" it writes "out\n" to standard output, then
// "shared\n" or "separate\n" to standard error: whether descriptors 1 and 2 are
// one open file (status flags belong to the open file, so a flag set through 1
// shows through 2 only then).

#include <fcntl.h>
#include <unistd.h>

#include <cstring>

static void Write(int fd, const char* text, size_t size) {
  while (size > 0) {
    const ssize_t written = write(fd, text, size);
    if (written <= 0) return;
    text += written;
    size -= static_cast<size_t>(written);
  }
}

int main(int argc, char** argv) {
  if (argc == 2 && std::strcmp(argv[1], "--probe-streams") == 0) {
    Write(1, "out\n", 4);
    const int flags = fcntl(1, F_GETFL);
    fcntl(1, F_SETFL, flags | O_NONBLOCK);
    const bool shared = (fcntl(2, F_GETFL) & O_NONBLOCK) != 0;
    fcntl(1, F_SETFL, flags);
    const char* answer = shared ? "shared\n" : "separate\n";
    Write(2, answer, std::strlen(answer));
    return 0;
  }
  for (int i = 1; i < argc; ++i) Write(1, argv[i], std::strlen(argv[i]) + 1);
  return 0;
}
