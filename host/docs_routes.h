// The access server's own documentation: the OpenAPI description of the module's REST surface at
// /api/openapi.json and the docs page at /docs, which renders it with the viewer that
// scripts/setup.sh installs and lets a reader try requests against this server.
#ifndef VKS_HOST_DOCS_ROUTES_H
#define VKS_HOST_DOCS_ROUTES_H

#include <event2/http.h>

#include <string>

namespace vks_host {

// Answers the request when its path is /api/openapi.json, /docs or under /docs/; false for any
// other path, which is left to the module's routes. Files are read from webRoot on every request.
bool ServeDocs(const std::string& webRoot, struct evhttp_request* req);

}  // namespace vks_host

#endif
