#pragma once

#include <chrono>
#include <memory>

#include "app/web/json_http.h"
#include "app/web/main_queue_gate.h"
#include "app/web/web_session.h"

namespace ferrylink::app {

// Every path of the page's server: the document, the page's static files
// (the only routes that need no access token), the event stream and the
// actions. Each action crosses to the main queue through `gate`, which must
// outlive the table's serving, as must `session`.
// `token` is the access token, empty when none is asked for.
http::RouteTable webRoutes(std::shared_ptr<WebSession> session, MainQueueGate& gate,
                           std::chrono::milliseconds keepalive, std::string token);

// Whether the route serves the document, whose refusals a browser shows.
bool isDocumentRoute(const http::Route& route);

}  // namespace ferrylink::app
