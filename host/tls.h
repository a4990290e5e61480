// HTTPS for the access server: the certificate and key of --tls-cert/--tls-key, and the OpenSSL
// bufferevent each accepted connection is served through.
#ifndef VKS_HOST_TLS_H
#define VKS_HOST_TLS_H

#include <string>

struct bufferevent;
struct event_base;
struct ssl_ctx_st;

namespace vks_host {

// A server context with the certificate chain and the private key (PEM), checked to belong
// together; TLS 1.2 at least. Null with the reason in *err.
struct ssl_ctx_st* NewTlsContext(const std::string& certPath, const std::string& keyPath, std::string* err);
void FreeTlsContext(struct ssl_ctx_st* ctx);

// The bufferevent of a connection about to be accepted (its socket set later by evhttp): the server
// side of a TLS session when ctx is set, a plain socket otherwise. Null when memory runs out.
struct bufferevent* NewConnectionBufferevent(struct event_base* base, struct ssl_ctx_st* ctx);

// Whether bev runs TLS (a connection of an HTTPS server whose session could not be made has a plain one).
bool IsTlsBufferevent(struct bufferevent* bev);

}  // namespace vks_host

#endif
