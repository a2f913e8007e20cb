#include "tls.h"

#include <fmt/format.h>
#include <gnutls/x509.h>

#include <stdexcept>
#include <utility>

namespace exporter {

namespace {

void check(int rc, const char* what) {
    if (rc < 0) {
        throw std::runtime_error(fmt::format("{}: {}", what, gnutls_strerror(rc)));
    }
}

gnutls_datum_t datum(const std::string& text) {
    return {reinterpret_cast<unsigned char*>(const_cast<char*>(text.data())), static_cast<unsigned>(text.size())};
}

gnutls_certificate_credentials_t newCredentials() {
    gnutls_certificate_credentials_t made = nullptr;
    check(gnutls_certificate_allocate_credentials(&made), "TLS");
    return made;
}

gnutls_priority_t newPriorities(int least, int most) {
    std::string words = "NORMAL:-VERS-TLS-ALL";
    for (int version = least; version <= most; ++version) {
        words += fmt::format(":+VERS-TLS1.{}", version);
    }
    gnutls_priority_t made = nullptr;
    check(gnutls_priority_init(&made, words.c_str(), nullptr), "the versions of TLS");
    return made;
}

}  // namespace

Tls::Tls(TlsSettings given)
    : content(std::move(given)),
      credentials(newCredentials(), gnutls_certificate_free_credentials),
      priorities(newPriorities(content.least, content.most), gnutls_priority_deinit) {
    const gnutls_datum_t certificate = datum(content.certificate);
    const gnutls_datum_t key = datum(content.key);
    check(gnutls_certificate_set_x509_key_mem(credentials.get(), &certificate, &key, GNUTLS_X509_FMT_PEM),
          "certificate and key do not fit, or are none");
    if (!content.clientAuthority.empty()) {
        const gnutls_datum_t authority = datum(content.clientAuthority);
        check(gnutls_certificate_set_x509_trust_mem(credentials.get(), &authority, GNUTLS_X509_FMT_PEM),
              "client_ca_file has no certificate");
    }
}

void Tls::prepare(gnutls_session_t session) const {
    gnutls_priority_set(session, priorities.get());
    gnutls_credentials_set(session, GNUTLS_CRD_CERTIFICATE, credentials.get());
    gnutls_certificate_server_set_request(session,
                                          content.clientAuthority.empty() ? GNUTLS_CERT_IGNORE : GNUTLS_CERT_REQUEST);
}

bool Tls::accepts(gnutls_session_t session) const {
    if (content.clientAuthority.empty()) {
        return true;
    }
    unsigned count = 0;
    if (gnutls_certificate_get_peers(session, &count) == nullptr || count == 0) {
        return !content.clientRequired;
    }
    std::string purpose = GNUTLS_KP_TLS_WWW_CLIENT;
    gnutls_typed_vdata_st wanted = {GNUTLS_DT_KEY_PURPOSE_OID, reinterpret_cast<unsigned char*>(purpose.data()), 0};
    unsigned status = 0;
    return gnutls_certificate_verify_peers(session, &wanted, 1, &status) == GNUTLS_E_SUCCESS && status == 0;
}

}  // namespace exporter
