#include "core/favicons/testing/https_test_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <stdexcept>

namespace {

template <class T, void (*Free)(T*)>
struct Freeing {
  void operator()(T* pointer) const { Free(pointer); }
};
using Key = std::unique_ptr<EVP_PKEY, Freeing<EVP_PKEY, EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Freeing<X509, X509_free>>;

void require(bool condition, const char* what) {
  if (!condition) throw std::runtime_error(std::string("test server: ") + what);
}

void addExtension(X509* certificate, X509* issuer, int nid, const std::string& value) {
  X509V3_CTX context;
  X509V3_set_ctx_nodb(&context);
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value.c_str());
  require(extension && X509_add_ext(certificate, extension, -1), "certificate extension");
  X509_EXTENSION_free(extension);
}

// A certificate for `key` signed by `issuerKey` (self-signed when `issuer` is null),
// valid from an hour ago for a day.
Certificate makeCertificate(EVP_PKEY* key, const char* commonName, X509* issuer,
                            EVP_PKEY* issuerKey, const std::vector<std::string>& dnsNames) {
  static long serial = 1;
  Certificate certificate(X509_new());
  X509* c = certificate.get();
  X509_set_version(c, 2);
  ASN1_INTEGER_set(X509_get_serialNumber(c), serial++);
  X509_gmtime_adj(X509_getm_notBefore(c), -3600);
  X509_gmtime_adj(X509_getm_notAfter(c), 86400);
  X509_set_pubkey(c, key);
  X509_NAME_add_entry_by_txt(X509_get_subject_name(c), "CN", MBSTRING_ASC,
                             reinterpret_cast<const unsigned char*>(commonName), -1, -1, 0);
  X509* signer = issuer ? issuer : c;
  X509_set_issuer_name(c, X509_get_subject_name(signer));
  addExtension(c, signer, NID_subject_key_identifier, "hash");
  addExtension(c, signer, NID_authority_key_identifier, "keyid:always");
  if (issuer == nullptr) {
    addExtension(c, signer, NID_basic_constraints, "critical,CA:TRUE");
    addExtension(c, signer, NID_key_usage, "critical,keyCertSign,cRLSign");
  } else {
    std::string names;
    for (const std::string& name : dnsNames) names += (names.empty() ? "DNS:" : ",DNS:") + name;
    addExtension(c, signer, NID_subject_alt_name, names);
    addExtension(c, signer, NID_ext_key_usage, "serverAuth");
  }
  require(X509_sign(c, issuerKey, EVP_sha256()) > 0, "signing");
  return certificate;
}

std::string reasonLine(int status) { return "HTTP/1.1 " + std::to_string(status) + " Scripted\r\n"; }

}  // namespace

struct HttpsTestServer::Tls {
  std::unique_ptr<SSL_CTX, Freeing<SSL_CTX, SSL_CTX_free>> context;
};

HttpsTestServer::HttpsTestServer(std::vector<std::string> hostNames) : tls_(std::make_unique<Tls>()) {
  std::signal(SIGPIPE, SIG_IGN);  // a client that hangs up mid-body must not end the test
  Key caKey(EVP_EC_gen("P-256"));
  Key serverKey(EVP_EC_gen("P-256"));
  require(caKey && serverKey, "key generation");
  Certificate ca = makeCertificate(caKey.get(), "Velto Test CA", nullptr, caKey.get(), {});
  Certificate server = makeCertificate(serverKey.get(), hostNames.at(0).c_str(), ca.get(),
                                       caKey.get(), hostNames);

  static std::atomic<int> counter{0};
  caFile_ = std::filesystem::temp_directory_path() /
            ("velto-test-ca-" + std::to_string(getpid()) + "-" + std::to_string(counter++) + ".pem");
  FILE* file = std::fopen(caFile_.c_str(), "w");
  require(file && PEM_write_X509(file, ca.get()), "writing the CA certificate");
  std::fclose(file);

  tls_->context.reset(SSL_CTX_new(TLS_server_method()));
  require(tls_->context && SSL_CTX_use_certificate(tls_->context.get(), server.get()) == 1 &&
              SSL_CTX_use_PrivateKey(tls_->context.get(), serverKey.get()) == 1,
          "TLS context");

  listener_ = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  require(listener_ >= 0 && bind(listener_, reinterpret_cast<sockaddr*>(&address), length) == 0 &&
              listen(listener_, 64) == 0 &&
              getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) == 0,
          "listening on 127.0.0.1");
  port_ = ntohs(address.sin_port);
  acceptor_ = std::thread([this] { acceptLoop(); });
}

HttpsTestServer::~HttpsTestServer() {
  shutdown(listener_, SHUT_RDWR);
  acceptor_.join();
  close(listener_);
  std::vector<std::thread> workers;
  {
    std::lock_guard lock(mutex_);
    workers.swap(workers_);
  }
  for (std::thread& worker : workers) worker.join();
  std::error_code ignored;
  std::filesystem::remove(caFile_, ignored);
}

void HttpsTestServer::script(const std::string& url, Response response) {
  std::lock_guard lock(mutex_);
  script_[url.substr(url.find("://") + 3)] = std::move(response);
}

int HttpsTestServer::requests(const std::string& url) const {
  std::lock_guard lock(mutex_);
  const auto found = requests_.find(url.substr(url.find("://") + 3));
  return found == requests_.end() ? 0 : found->second;
}

std::string HttpsTestServer::lastHeaders(const std::string& url) const {
  std::lock_guard lock(mutex_);
  const auto found = lastHeaders_.find(url.substr(url.find("://") + 3));
  return found == lastHeaders_.end() ? "" : found->second;
}

void HttpsTestServer::acceptLoop() {
  while (true) {
    const int connection = accept(listener_, nullptr, nullptr);
    if (connection < 0) return;  // shut down
    ++connections_;
    timeval limit{10, 0};  // never wait forever on a client that went quiet
    setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    std::lock_guard lock(mutex_);
    workers_.emplace_back([this, connection] { serve(connection); });
  }
}

void HttpsTestServer::serve(int connection) {
  SSL* ssl = SSL_new(tls_->context.get());
  SSL_set_fd(ssl, connection);
  std::string head;
  if (SSL_accept(ssl) == 1) {
    char buffer[4096];
    while (head.find("\r\n\r\n") == std::string::npos && head.size() < 65536) {
      const int count = SSL_read(ssl, buffer, sizeof buffer);
      if (count <= 0) break;
      head.append(buffer, static_cast<size_t>(count));
    }
  }
  const size_t pathStart = head.find(' ') + 1;
  const size_t hostStart = head.find("\r\nHost: ");
  if (pathStart != 0 && hostStart != std::string::npos) {
    const std::string path = head.substr(pathStart, head.find(' ', pathStart) - pathStart);
    std::string host = head.substr(hostStart + 8, head.find("\r\n", hostStart + 8) - hostStart - 8);
    host = host.substr(0, host.find(':'));
    Response response;
    response.status = 404;
    {
      std::lock_guard lock(mutex_);
      ++requests_[host + path];
      lastHeaders_[host + path] = head;
      if (const auto found = script_.find(host + path); found != script_.end()) response = found->second;
    }
    const int now = ++active_;
    int most = mostAtOnce_;
    while (now > most && !mostAtOnce_.compare_exchange_weak(most, now)) {
    }
    std::this_thread::sleep_for(response.delay);
    std::string reply = reasonLine(response.status);
    if (response.announce) {
      reply += "Content-Length: " + std::to_string(response.announcedSize.value_or(response.body.size())) + "\r\n";
    }
    for (const std::string& line : response.headers) reply += line + "\r\n";
    reply += "Connection: close\r\n\r\n" + response.body;
    for (size_t sent = 0; sent < reply.size();) {
      const int count = SSL_write(ssl, reply.data() + sent, static_cast<int>(std::min<size_t>(reply.size() - sent, 16384)));
      if (count <= 0) break;
      sent += static_cast<size_t>(count);
    }
    --active_;
    SSL_shutdown(ssl);
  }
  SSL_free(ssl);
  close(connection);
}
