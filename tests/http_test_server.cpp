#include "tests/http_test_server.h"

#include <httplib.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <map>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace dataparser::testing {

// --- certificates -----------------------------------------------------------------------------

namespace {

struct KeyDeleter {
  void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
struct CertificateDeleter {
  void operator()(X509* certificate) const { X509_free(certificate); }
};
struct BioDeleter {
  void operator()(BIO* bio) const { BIO_free(bio); }
};
using Key = std::unique_ptr<EVP_PKEY, KeyDeleter>;
using Certificate = std::unique_ptr<X509, CertificateDeleter>;
using Bio = std::unique_ptr<BIO, BioDeleter>;

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
  addExtension(cert, signer, NID_subject_key_identifier, "hash");
  addExtension(cert, signer, NID_authority_key_identifier, "keyid:always");
  if (authority) {
    addExtension(cert, signer, NID_basic_constraints, "critical,CA:TRUE");
    addExtension(cert, signer, NID_key_usage, "critical,keyCertSign,cRLSign");
  } else {
    addExtension(cert, signer, NID_basic_constraints, "critical,CA:FALSE");
    addExtension(cert, signer, NID_key_usage, "critical,digitalSignature");
    addExtension(cert, signer, NID_ext_key_usage, "serverAuth");
    addExtension(cert, signer, NID_subject_alt_name, "IP:127.0.0.1,DNS:localhost");
  }
  require(X509_sign(cert, issuerKey != nullptr ? issuerKey : key, EVP_sha256()) > 0, "sign");
  return certificate;
}

std::string pemText(BIO* bio) {
  char* data = nullptr;
  long length = BIO_get_mem_data(bio, &data);
  return std::string(data, static_cast<std::size_t>(length));
}

std::string certificatePem(X509* certificate) {
  Bio bio(BIO_new(BIO_s_mem()));
  require(PEM_write_bio_X509(bio.get(), certificate) == 1, "write certificate");
  return pemText(bio.get());
}

std::string keyPem(EVP_PKEY* key) {
  Bio bio(BIO_new(BIO_s_mem()));
  require(PEM_write_bio_PrivateKey(bio.get(), key, nullptr, nullptr, 0, nullptr, nullptr) == 1,
          "write key");
  return pemText(bio.get());
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
  return TestCertificates{certificatePem(authority.get()), certificatePem(server.get()),
                          keyPem(serverKey.get())};
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

  void install();
  void serveFile(const httplib::Request& request, httplib::Response& response);
  // Sleeps up to `milliseconds`, in short steps; false when the server is stopping.
  bool pause(long milliseconds) const {
    auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    while (std::chrono::steady_clock::now() < end) {
      if (stopping) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
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
  {
    std::lock_guard lock(mutex);
    auto found = files.find(request.matches[1].str());
    if (found != files.end()) file = found->second;
  }
  // The ranges are ours to apply: keep the library from applying them a second time.
  const_cast<httplib::Request&>(request).ranges.clear();
  if (!file) {
    response.status = 404;
    response.set_content("no such file", "text/plain");
    return;
  }
  if (request.has_param("status")) {
    response.status = static_cast<int>(numberParameter(request, "status", 500));
    response.set_content("error page for status " + std::to_string(response.status), "text/html");
    return;
  }

  const std::size_t size = file->size();
  std::size_t start =
      request.has_param("ignoreRange") ? 0 : rangeStart(request.get_header_value("Range"));
  if (start > size) {
    response.status = 416;
    response.set_header("Content-Range", "bytes */" + std::to_string(size));
    response.set_content("range not satisfiable", "text/plain");
    return;
  }
  const bool partial = request.has_header("Range") && !request.has_param("ignoreRange");
  response.status = partial ? 206 : 200;
  const bool chunked = request.has_param("chunked");
  if (partial && (!chunked || request.has_param("contentRange"))) {
    response.set_header("Content-Range", "bytes " + std::to_string(start) + "-" +
                                             std::to_string(size == 0 ? 0 : size - 1) + "/" +
                                             std::to_string(size));
  }
  const std::size_t dropAt = static_cast<std::size_t>(numberParameter(request, "dropAt", -1));
  const std::size_t step = static_cast<std::size_t>(numberParameter(request, "trickle", 1 << 20));
  const long every = numberParameter(request, "every", 0);

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
    response.set_chunked_content_provider(
        "application/octet-stream",
        [provide](std::size_t offset, httplib::DataSink& sink) { return provide(offset, sink); });
  } else {
    response.set_content_provider(
        size - start, "application/octet-stream",
        [provide](std::size_t offset, std::size_t, httplib::DataSink& sink) {
          return provide(offset, sink);
        });
  }
}

void HttpTestServer::Impl::install() {
  server->set_keep_alive_max_count(1);
  server->Get("/files/(.+)", [this](const httplib::Request& request, httplib::Response& response) {
    {
      std::lock_guard lock(mutex);
      requests.push_back({request.path, queryOf(request), request.get_header_value("Range")});
    }
    serveFile(request, response);
  });
  server->Get(
      "/redirect(/.+)", [this](const httplib::Request& request, httplib::Response& response) {
        {
          std::lock_guard lock(mutex);
          requests.push_back({request.path, queryOf(request), request.get_header_value("Range")});
        }
        std::string query = queryOf(request);
        response.set_redirect(request.matches[1].str() + (query.empty() ? "" : "?" + query));
      });
  port = server->bind_to_any_port("127.0.0.1");
  if (port <= 0) throw std::runtime_error("test server: cannot bind 127.0.0.1");
  thread = std::thread([this] { server->listen_after_bind(); });
  while (!server->is_running())
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

namespace {

Certificate parseCertificate(const std::string& pem) {
  Bio bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
  return Certificate(PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr));
}

Key parseKey(const std::string& pem) {
  Bio bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
  return Key(PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr));
}

}  // namespace

HttpTestServer::HttpTestServer() : impl_(std::make_unique<Impl>()) {
  impl_->server = std::make_unique<httplib::Server>();
  impl_->install();
}

HttpTestServer::HttpTestServer(const TestCertificates& certificates)
    : impl_(std::make_unique<Impl>()) {
  Certificate certificate = parseCertificate(certificates.serverCertificatePem);
  Key key = parseKey(certificates.serverKeyPem);
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

std::vector<HttpTestServer::Request> HttpTestServer::requests() const {
  std::lock_guard lock(impl_->mutex);
  return impl_->requests;
}

void HttpTestServer::clearRequests() {
  std::lock_guard lock(impl_->mutex);
  impl_->requests.clear();
}

}  // namespace dataparser::testing
