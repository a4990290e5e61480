#include "tls.h"

#include <event2/bufferevent.h>
#include <event2/bufferevent_ssl.h>
#include <openssl/err.h>
#include <openssl/ssl.h>

namespace vks_host {
namespace {

// What OpenSSL said last, for a start-up error line.
std::string OpenSslError() {
    char text[256] = "unknown error";
    unsigned long code = ERR_peek_last_error();
    if (code != 0) {
        ERR_error_string_n(code, text, sizeof(text));
    }
    ERR_clear_error();
    return text;
}

}  // namespace

struct ssl_ctx_st* NewTlsContext(const std::string& certPath, const std::string& keyPath, std::string* err) {
    SSL_CTX* ctx = SSL_CTX_new(TLS_server_method());
    if (ctx == nullptr) {
        *err = "cannot create the TLS context: " + OpenSslError();
        return nullptr;
    }
    SSL_CTX_set_min_proto_version(ctx, TLS1_2_VERSION);
    // A client must not make the loop thread redo handshakes on an open connection.
    SSL_CTX_set_options(ctx, SSL_OP_NO_RENEGOTIATION);
    if (SSL_CTX_use_certificate_chain_file(ctx, certPath.c_str()) != 1) {
        *err = "cannot use --tls-cert " + certPath + ": " + OpenSslError();
    } else if (SSL_CTX_use_PrivateKey_file(ctx, keyPath.c_str(), SSL_FILETYPE_PEM) != 1) {
        *err = "cannot use --tls-key " + keyPath + ": " + OpenSslError();
    } else if (SSL_CTX_check_private_key(ctx) != 1) {
        *err = "--tls-key " + keyPath + " does not belong to --tls-cert " + certPath;
        ERR_clear_error();
    } else {
        return ctx;
    }
    SSL_CTX_free(ctx);
    return nullptr;
}

void FreeTlsContext(struct ssl_ctx_st* ctx) {
    SSL_CTX_free(ctx);
}

struct bufferevent* NewConnectionBufferevent(struct event_base* base, struct ssl_ctx_st* ctx) {
    if (ctx == nullptr) {
        return bufferevent_socket_new(base, -1, BEV_OPT_CLOSE_ON_FREE);
    }
    SSL* ssl = SSL_new(ctx);
    // With BEV_OPT_CLOSE_ON_FREE the bufferevent frees the session with itself, and when it cannot
    // be made, at once.
    struct bufferevent* bev =
        ssl != nullptr
            ? bufferevent_openssl_socket_new(base, -1, ssl, BUFFEREVENT_SSL_ACCEPTING, BEV_OPT_CLOSE_ON_FREE)
            : nullptr;
    if (bev == nullptr) {
        ERR_clear_error();  // not to be reported as the cause of a later session's failure
        return nullptr;
    }
    // Many clients close without a close_notify once they have their answer: an end of file, not an
    // error worth a log line.
    bufferevent_openssl_set_allow_dirty_shutdown(bev, 1);
    return bev;
}

bool IsTlsBufferevent(struct bufferevent* bev) {
    return bev != nullptr && bufferevent_openssl_get_ssl(bev) != nullptr;
}

}  // namespace vks_host
