#include "docs_routes.h"

#include "http_answer.h"
#include "web_files.h"

namespace vks_host {

bool ServeDocs(const std::string& webRoot, struct evhttp_request* req) {
    const std::string kViewer = "/docs/viewer/";
    std::string path = vks_web::RequestPath(req);
    // Refusals are the server's own status envelope, as on every other route.
    const vks_web::RefusalWriter refuse = &SendJsonError;
    if (path == "/api/openapi.json") {
        vks_web::SendFile(req, webRoot, "docs/openapi/module.json", refuse);
    } else if (path == "/docs" || path == "/docs/") {
        vks_web::SendFile(req, webRoot, "web/docs/index.html", refuse);
    } else if (path.compare(0, kViewer.size(), kViewer) == 0) {
        vks_web::SendFile(req, webRoot, "node_modules/swagger-ui-dist/" + path.substr(kViewer.size()),
                          refuse);
    } else if (path.compare(0, 6, "/docs/") == 0) {
        vks_web::SendFile(req, webRoot, "web/docs/" + path.substr(6), refuse);
    } else {
        return false;
    }
    return true;
}

}  // namespace vks_host
