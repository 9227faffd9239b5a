#include "service/TestCertificate.h"

#include <cstdio>
#include <memory>
#include <stdexcept>

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

namespace cadora::test {

namespace {

struct Free {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(X509* certificate) const { X509_free(certificate); }
    void operator()(X509_EXTENSION* extension) const { X509_EXTENSION_free(extension); }
    void operator()(std::FILE* file) const { std::fclose(file); }
};

void require(bool done) {
    if (!done) {
        throw std::runtime_error("can't make a certificate");
    }
}

void extend(X509* certificate, int kind, const char* value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
    const std::unique_ptr<X509_EXTENSION, Free> extension(
        X509V3_EXT_conf_nid(nullptr, &context, kind, value));
    require(extension && X509_add_ext(certificate, extension.get(), -1) == 1);
}

} // namespace

TestCertificate makeTestCertificate(const std::filesystem::path& folder) {
    const std::unique_ptr<EVP_PKEY, Free> key(EVP_EC_gen("P-256"));
    const std::unique_ptr<X509, Free> certificate(X509_new());
    require(key && certificate);
    constexpr long anHourAgo = -3600;
    constexpr long inADay = 86400;
    X509_set_version(certificate.get(), X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 1);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), anHourAgo);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), inADay);
    X509_set_pubkey(certificate.get(), key.get());
    X509_NAME* name = X509_get_subject_name(certificate.get());
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("127.0.0.1"),
                               -1, -1, 0);
    X509_set_issuer_name(certificate.get(), name);
    extend(certificate.get(), NID_subject_alt_name, "IP:127.0.0.1,DNS:localhost");
    extend(certificate.get(), NID_basic_constraints, "critical,CA:TRUE");
    require(X509_sign(certificate.get(), key.get(), EVP_sha256()) > 0);

    TestCertificate files{folder / "certificate.pem", folder / "key.pem"};
    const std::unique_ptr<std::FILE, Free> certificateFile(std::fopen(files.certificate.c_str(), "w"));
    require(certificateFile && PEM_write_X509(certificateFile.get(), certificate.get()) == 1);
    const std::unique_ptr<std::FILE, Free> keyFile(std::fopen(files.key.c_str(), "w"));
    require(keyFile &&
            PEM_write_PrivateKey(keyFile.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr) == 1);
    return files;
}

} // namespace cadora::test
