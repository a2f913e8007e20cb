// TLS: certificates, versions, and which clients are accepted. Knows GnuTLS, and no connections.
#pragma once

#include <gnutls/gnutls.h>

#include <memory>
#include <string>
#include <type_traits>

namespace exporter {

struct TlsSettings {
    std::string certificate;  // contents of the files, PEM
    std::string key;
    std::string clientAuthority;  // empty: clients need no certificate
    bool clientRequired = false;  // one that is there is verified in any case
    int least = 2;                // versions: TLS 1.least to 1.most
    int most = 3;
};

// What the sessions of a server are made with. It outlives them.
class Tls {
public:
    // Throws std::runtime_error where certificate and key do not fit, or something is no certificate.
    explicit Tls(TlsSettings given);

    const TlsSettings& settings() const {
        return content;
    }
    // For a session before its handshake.
    void prepare(gnutls_session_t session) const;
    // Whether the client of the session has a certificate that may ask, or needs none.
    bool accepts(gnutls_session_t session) const;

private:
    using Credentials = std::remove_pointer_t<gnutls_certificate_credentials_t>;
    using Priorities = std::remove_pointer_t<gnutls_priority_t>;

    TlsSettings content;
    std::unique_ptr<Credentials, void (*)(Credentials*)> credentials;
    std::unique_ptr<Priorities, void (*)(Priorities*)> priorities;
};

}  // namespace exporter
