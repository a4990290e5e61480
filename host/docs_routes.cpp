#include "docs_routes.h"

#include "web_files.h"

namespace vks_host {

bool ServeDocs(const std::string& webRoot, struct evhttp_request* req) {
    const std::string kViewer = "/docs/viewer/";
    std::string path = vks_web::RequestPath(req);
    if (path == "/api/openapi.json") {
        vks_web::SendFile(req, webRoot, "docs/openapi/module.json");
    } else if (path == "/docs" || path == "/docs/") {
        vks_web::SendFile(req, webRoot, "web/docs/index.html");
    } else if (path.compare(0, kViewer.size(), kViewer) == 0) {
        vks_web::SendFile(req, webRoot, "node_modules/swagger-ui-dist/" + path.substr(kViewer.size()));
    } else if (path.compare(0, 6, "/docs/") == 0) {
        vks_web::SendFile(req, webRoot, "web/docs/" + path.substr(6));
    } else {
        return false;
    }
    return true;
}

}  // namespace vks_host
