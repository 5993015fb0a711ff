// A real HTTP(S) server on 127.0.0.1 inside the test process (cpp-httplib), for the downloader
// tests, and a throw-away certificate authority for its TLS variant.
//
// Files added with addFile are served at "/files/{name}", honouring "Range: bytes=S-" (206 with
// "Content-Range"). Faults are asked for per request through the query:
//   dropAt=N           the connection is closed once the body reaches byte N of the file
//   trickle=B&every=M  B bytes at a time, M milliseconds apart
//   chunked=1          no "Content-Length": chunked transfer encoding
//   chunked=1&contentRange=1   chunked, with only "Content-Range: bytes S-E/total" as a size
//   ignoreRange=1      200 and the whole file whatever the "Range" header says
//   noValidator=1      no "ETag" (otherwise every file answer has one, and an "If-Range" that
//                      does not match it gets the whole file with 200)
//   ignoreIfRange=1    the range is applied whatever "If-Range" says
//   status=N           status N with a short text body ("error page")
// "/redirect/{rest}" answers 302 with "Location: /{rest}" (query kept).
//
// Every request is recorded (path, query, "Range" and "If-Range" headers). The server stops with
// the object; trickling answers end early when it does.
//
// Thread safety: all functions may be called from any thread.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace dataparser::testing {

// A certificate authority and a server certificate for 127.0.0.1 and localhost, made on the
// spot (EC P-256 keys, valid for a day).
struct TestCertificates {
  std::string authorityPem;
  std::string serverCertificatePem;
  std::string serverKeyPem;

  static TestCertificates make();
};

class HttpTestServer {
 public:
  struct Request {
    std::string path;
    std::string query;    // the raw query, without "?"
    std::string range;    // the "Range" header, "" when absent
    std::string ifRange;  // the "If-Range" header, "" when absent
  };

  // Plain HTTP.
  HttpTestServer();
  // HTTPS with the given server certificate and key.
  explicit HttpTestServer(const TestCertificates& certificates);
  ~HttpTestServer();
  HttpTestServer(const HttpTestServer&) = delete;
  HttpTestServer& operator=(const HttpTestServer&) = delete;

  void addFile(std::string name, std::string content);
  // "http://127.0.0.1:{port}{pathAndQuery}" (https for the TLS server).
  std::string url(std::string_view pathAndQuery) const;
  int port() const;
  // Faults in the query's syntax ("dropAt=1000") applied to every later request, so that one
  // URL can fail and then succeed; "" clears them.
  void setFaults(std::string_view query);
  // The entity tag that a file of this content is served with.
  static std::string etagOf(std::string_view content);
  std::vector<Request> requests() const;
  void clearRequests();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace dataparser::testing
