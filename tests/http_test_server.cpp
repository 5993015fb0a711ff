#include "tests/http_test_server.h"

#include <httplib.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace dataparser::testing {

// --- certificates -----------------------------------------------------------------------------

namespace {

template <typename T, auto Free>
struct Deleter {
  void operator()(T* p) const { Free(p); }
};
using Key = std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY, EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Deleter<X509, X509_free>>;
using Bio = std::unique_ptr<BIO, Deleter<BIO, BIO_free>>;

void require(bool ok, const char* what) {
  if (!ok) throw std::runtime_error(std::string("test certificate: ") + what);
}

void addExtension(X509* certificate, X509* issuer, int nid, const char* value) {
  X509V3_CTX context;
  X509V3_set_ctx_nodb(&context);
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value);
  require(extension != nullptr, value);
  X509_add_ext(certificate, extension, -1);
  X509_EXTENSION_free(extension);
}

// A certificate for `key` named `commonName`, signed by `issuerKey` (itself when issuer is
// null).
Certificate makeCertificate(EVP_PKEY* key, const char* commonName, long serial, X509* issuer,
                            EVP_PKEY* issuerKey, bool authority) {
  Certificate certificate(X509_new());
  X509* cert = certificate.get();
  X509_set_version(cert, 2);
  ASN1_INTEGER_set(X509_get_serialNumber(cert), serial);
  X509_gmtime_adj(X509_getm_notBefore(cert), -3600);
  X509_gmtime_adj(X509_getm_notAfter(cert), 24 * 3600);
  X509_set_pubkey(cert, key);
  X509_NAME* name = X509_get_subject_name(cert);
  X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                             reinterpret_cast<const unsigned char*>(commonName), -1, -1, 0);
  X509* signer = issuer != nullptr ? issuer : cert;
  X509_set_issuer_name(cert, X509_get_subject_name(signer));
  std::vector<std::pair<int, const char*>> extensions = {
      {NID_subject_key_identifier, "hash"}, {NID_authority_key_identifier, "keyid:always"}};
  if (authority) {
    extensions.insert(extensions.end(), {{NID_basic_constraints, "critical,CA:TRUE"},
                                         {NID_key_usage, "critical,keyCertSign,cRLSign"}});
  } else {
    extensions.insert(extensions.end(), {{NID_basic_constraints, "critical,CA:FALSE"},
                                         {NID_key_usage, "critical,digitalSignature"},
                                         {NID_ext_key_usage, "serverAuth"},
                                         {NID_subject_alt_name, "IP:127.0.0.1,DNS:localhost"}});
  }
  for (auto [nid, value] : extensions)
    addExtension(cert, signer, nid, value);
  require(X509_sign(cert, issuerKey != nullptr ? issuerKey : key, EVP_sha256()) > 0, "sign");
  return certificate;
}

// The PEM text that `write` puts into a memory BIO.
template <typename Write>
std::string pem(Write write) {
  Bio bio(BIO_new(BIO_s_mem()));
  require(write(bio.get()) == 1, "write PEM");
  char* data = nullptr;
  long length = BIO_get_mem_data(bio.get(), &data);
  return std::string(data, static_cast<std::size_t>(length));
}

}  // namespace

TestCertificates TestCertificates::make() {
  Key authorityKey(EVP_EC_gen("P-256"));
  Key serverKey(EVP_EC_gen("P-256"));
  require(authorityKey && serverKey, "key generation");
  Certificate authority =
      makeCertificate(authorityKey.get(), "DataParser Test Authority", 1, nullptr, nullptr, true);
  Certificate server =
      makeCertificate(serverKey.get(), "127.0.0.1", 2, authority.get(), authorityKey.get(), false);
  return TestCertificates{pem([&](BIO* bio) { return PEM_write_bio_X509(bio, authority.get()); }),
                          pem([&](BIO* bio) { return PEM_write_bio_X509(bio, server.get()); }),
                          pem([&](BIO* bio) {
                            return PEM_write_bio_PrivateKey(bio, serverKey.get(), nullptr, nullptr,
                                                            0, nullptr, nullptr);
                          })};
}

// --- server -----------------------------------------------------------------------------------

struct HttpTestServer::Impl {
  std::unique_ptr<httplib::Server> server;
  std::thread thread;
  int port = 0;
  bool tls = false;
  std::atomic<bool> stopping = false;

  mutable std::mutex mutex;
  std::map<std::string, std::shared_ptr<const std::string>, std::less<>> files;
  std::vector<Request> requests;
  std::map<std::string, std::string> faults;  // set for every request

  void install();
  void record(const httplib::Request& request);
  void serveFile(const httplib::Request& request, httplib::Response& response);
  // Sleeps up to `milliseconds`, in short steps; false when the server is stopping.
  bool pause(long milliseconds) const {
    auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    while (!stopping && std::chrono::steady_clock::now() < end)
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    return !stopping;
  }
};

namespace {

long numberParameter(const httplib::Request& request, const char* name, long otherwise) {
  if (!request.has_param(name)) return otherwise;
  return std::stol(request.get_param_value(name));
}

std::string queryOf(const httplib::Request& request) {
  std::size_t question = request.target.find('?');
  return question == std::string::npos ? "" : request.target.substr(question + 1);
}

// The first byte of "bytes=S-" (or "bytes=S-E"); 0 without a usable header.
std::size_t rangeStart(const std::string& header) {
  if (header.rfind("bytes=", 0) != 0) return 0;
  try {
    return static_cast<std::size_t>(std::stoull(header.substr(6)));
  } catch (const std::exception&) {
    return 0;
  }
}

}  // namespace

void HttpTestServer::Impl::serveFile(const httplib::Request& request, httplib::Response& response) {
  std::shared_ptr<const std::string> file;
  std::map<std::string, std::string> standing;
  {
    std::lock_guard lock(mutex);
    auto found = files.find(request.matches[1].str());
    if (found != files.end()) file = found->second;
    standing = faults;
  }
  // A fault asked for in the query, else one set for every request.
  auto has = [&](const char* name) { return request.has_param(name) || standing.contains(name); };
  auto number = [&](const char* name, long otherwise) {
    if (request.has_param(name)) return numberParameter(request, name, otherwise);
    auto found = standing.find(name);
    return found == standing.end() ? otherwise : std::stol(found->second);
  };
  // The ranges are ours to apply: keep the library from applying them a second time.
  const_cast<httplib::Request&>(request).ranges.clear();
  if (!file) {
    response.status = 404;
    response.set_content("no such file", "text/plain");
    return;
  }
  if (has("status")) {
    response.status = static_cast<int>(number("status", 500));
    response.set_content("error page for status " + std::to_string(response.status), "text/html");
    return;
  }

  const std::size_t size = file->size();
  // The validator: an entity tag of the content. A range is applied only while "If-Range"
  // (when sent) still names it.
  const std::string etag = HttpTestServer::etagOf(*file);
  if (!has("noValidator")) response.set_header("ETag", etag);
  const bool ignoreRange =
      has("ignoreRange") || (request.has_header("If-Range") && !has("ignoreIfRange") &&
                             request.get_header_value("If-Range") != etag);
  std::size_t start = ignoreRange ? 0 : rangeStart(request.get_header_value("Range"));
  if (start > size) {
    response.status = 416;
    response.set_header("Content-Range", "bytes */" + std::to_string(size));
    response.set_content("range not satisfiable", "text/plain");
    return;
  }
  const bool partial = request.has_header("Range") && !ignoreRange;
  response.status = partial ? 206 : 200;
  const bool chunked = has("chunked");
  if (partial && (!chunked || has("contentRange"))) {
    response.set_header("Content-Range", "bytes " + std::to_string(start) + "-" +
                                             std::to_string(size == 0 ? 0 : size - 1) + "/" +
                                             std::to_string(size));
  }
  const std::size_t dropAt = static_cast<std::size_t>(number("dropAt", -1));
  const std::size_t step = static_cast<std::size_t>(number("trickle", 1 << 20));
  const long every = number("every", 0);

  // Writes the file from byte start + offset on, within the fault's limits. False ends the
  // answer early, which drops the connection.
  if (!chunked && start == size) {
    response.set_content("", "application/octet-stream");
    return;
  }
  auto provide = [this, file, start, size, dropAt, step, every](std::size_t offset,
                                                                httplib::DataSink& sink) {
    std::size_t position = start + offset;
    if (position >= size) {
      if (sink.done) sink.done();
      return true;
    }
    if (position >= dropAt || stopping) return false;
    std::size_t length = std::min({step, size - position, dropAt - position});
    if (!sink.write(file->data() + position, length)) return false;
    return every <= 0 || pause(every);
  };
  if (chunked) {
    response.set_chunked_content_provider("application/octet-stream", provide);
  } else {
    response.set_content_provider(
        size - start, "application/octet-stream",
        [provide](std::size_t offset, std::size_t, httplib::DataSink& sink) {
          return provide(offset, sink);
        });
  }
}

void HttpTestServer::Impl::record(const httplib::Request& request) {
  std::lock_guard lock(mutex);
  requests.push_back({request.path, queryOf(request), request.get_header_value("Range"),
                      request.get_header_value("If-Range")});
}

void HttpTestServer::Impl::install() {
  server->set_keep_alive_max_count(1);
  server->Get("/files/(.+)", [this](const httplib::Request& request, httplib::Response& response) {
    record(request);
    serveFile(request, response);
  });
  server->Get("/redirect(/.+)", [this](const httplib::Request& request, httplib::Response& out) {
    record(request);
    std::string query = queryOf(request);
    out.set_redirect(request.matches[1].str() + (query.empty() ? "" : "?" + query));
  });
  port = server->bind_to_any_port("127.0.0.1");
  if (port <= 0) throw std::runtime_error("test server: cannot bind 127.0.0.1");
  thread = std::thread([this] { server->listen_after_bind(); });
  while (!server->is_running())
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

HttpTestServer::HttpTestServer() : impl_(std::make_unique<Impl>()) {
  impl_->server = std::make_unique<httplib::Server>();
  impl_->install();
}

HttpTestServer::HttpTestServer(const TestCertificates& certificates)
    : impl_(std::make_unique<Impl>()) {
  auto bio = [](const std::string& pem) {
    return Bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
  };
  Certificate certificate(
      PEM_read_bio_X509(bio(certificates.serverCertificatePem).get(), nullptr, nullptr, nullptr));
  Key key(PEM_read_bio_PrivateKey(bio(certificates.serverKeyPem).get(), nullptr, nullptr, nullptr));
  require(certificate && key, "parse server certificate");
  auto server = std::make_unique<httplib::SSLServer>(certificate.get(), key.get());
  require(server->is_valid(), "TLS server set-up");
  impl_->server = std::move(server);
  impl_->tls = true;
  impl_->install();
}

HttpTestServer::~HttpTestServer() {
  impl_->stopping = true;
  impl_->server->stop();
  if (impl_->thread.joinable()) impl_->thread.join();
}

void HttpTestServer::addFile(std::string name, std::string content) {
  std::lock_guard lock(impl_->mutex);
  impl_->files[std::move(name)] = std::make_shared<const std::string>(std::move(content));
}

std::string HttpTestServer::url(std::string_view pathAndQuery) const {
  return std::string(impl_->tls ? "https" : "http") +
         "://127.0.0.1:" + std::to_string(impl_->port) + std::string(pathAndQuery);
}

int HttpTestServer::port() const {
  return impl_->port;
}

std::string HttpTestServer::etagOf(std::string_view content) {
  return "\"" + std::to_string(std::hash<std::string_view>{}(content)) + "\"";
}

void HttpTestServer::setFaults(std::string_view query) {
  std::map<std::string, std::string> parsed;
  while (!query.empty()) {
    std::string_view pair = query.substr(0, query.find('&'));
    query.remove_prefix(std::min(query.size(), pair.size() + 1));
    std::size_t equals = pair.find('=');
    parsed[std::string(pair.substr(0, equals))] =
        equals == std::string_view::npos ? "1" : std::string(pair.substr(equals + 1));
  }
  std::lock_guard lock(impl_->mutex);
  impl_->faults = std::move(parsed);
}

std::vector<HttpTestServer::Request> HttpTestServer::requests() const {
  std::lock_guard lock(impl_->mutex);
  return impl_->requests;
}

void HttpTestServer::clearRequests() {
  std::lock_guard lock(impl_->mutex);
  impl_->requests.clear();
}

}  // namespace dataparser::testing
