// A loopback HTTP server for the download benchmark: serves one file, with range support, at
// every path. Usage: dataparser_http_file_server FILE [PORT]. Prints "port N" on stdout once it
// listens (PORT 0 or absent: any free port) and runs until it is killed.
#include <fcntl.h>
#include <httplib.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s FILE [PORT]\n", argv[0]);
    return 2;
  }
  int descriptor = ::open(argv[1], O_RDONLY | O_CLOEXEC);
  struct stat info {};
  if (descriptor < 0 || ::fstat(descriptor, &info) != 0 || info.st_size <= 0) {
    std::perror(argv[1]);
    return 1;
  }
  const auto size = static_cast<std::size_t>(info.st_size);
  void* mapped = ::mmap(nullptr, size, PROT_READ, MAP_SHARED, descriptor, 0);
  if (mapped == MAP_FAILED) {
    std::perror("mmap");
    return 1;
  }
  const char* data = static_cast<const char*>(mapped);

  httplib::Server server;
  server.Get(".*", [data, size](const httplib::Request&, httplib::Response& response) {
    // The library applies a "Range: bytes=S-" request to this provider (206, Content-Range).
    response.set_content_provider(
        size, "application/octet-stream",
        [data, size](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
          constexpr std::size_t kChunk = std::size_t{1} << 20;
          std::size_t piece = std::min({kChunk, length, size - offset});
          return sink.write(data + offset, piece);
        });
  });
  int port = argc > 2 ? std::atoi(argv[2]) : 0;
  if (port > 0) {
    if (!server.bind_to_port("127.0.0.1", port)) return 1;
  } else {
    port = server.bind_to_any_port("127.0.0.1");
    if (port <= 0) return 1;
  }
  std::printf("port %d\n", port);
  std::fflush(stdout);
  return server.listen_after_bind() ? 0 : 1;
}
