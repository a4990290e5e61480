// Starts the viewer on the module's description; a file of its own because the page's policy
// allows no inline script.
"use strict";

// The description's server is "/api" on this origin, so "Try it out" calls this access server.
if (typeof SwaggerUIBundle === "function") {
  window.viewer = SwaggerUIBundle({
    url: "/api/openapi.json",
    dom_id: "#viewer",
    deepLinking: true,
    tryItOutEnabled: true,
    displayRequestDuration: true,
    validatorUrl: null,  // no badge from an outside validator: the kit works offline
  });
} else {
  document.getElementById("missing").hidden = false;
}
