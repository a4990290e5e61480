// The server's client connections: how many are open (accepting pauses at --max-connections),
// whether accept() fails (accepting pauses for a moment), how long a request takes to arrive
// (--header-timeout), and which request a connection carries, so that a client leaving is noticed.
#ifndef VKS_HOST_CONNECTIONS_H
#define VKS_HOST_CONNECTIONS_H

struct evhttp_bound_socket;
struct evhttp_request;

namespace vks_host {

struct AccessServer;
struct Refusal;
struct RequestHead;
struct RequestCtx;
struct Connection;

// Sets up accepting on the bound socket with the hooks below. 0, or -1 with nothing set up.
int WatchConnections(AccessServer* server, struct evhttp_bound_socket* listener);
// Closes the listening socket for good (a stop); connections already open stay.
void StopAccepting(AccessServer* server);
// Frees what WatchConnections set up.
void UnwatchConnections(AccessServer* server);

// A complete request arrived on its connection: its header time-out ends. The connection.
Connection* RequestArrived(AccessServer* server, struct evhttp_request* req);
// When req, just arrived on conn, stands in for a request refused before evhttp read it
// (request_framing.h): that request's head as far as it was read, with *refusal set. Null otherwise.
const RequestHead* RefusedRequest(const Connection* conn, Refusal* refusal);
// The request the connection carries from now on (null: none). A request it carries when the
// connection closes is handed to OnClientGone.
void CarryRequest(Connection* conn, RequestCtx* ctx);

// The answer to req is handed to evhttp: it counts as unsent until evhttp has written it whole, or
// until its connection closes, so that a drain neither cuts it off nor waits for a lost one.
void AnswerHandedOver(Connection* conn, struct evhttp_request* req);

// Defined by the access server: the client of ctx has gone, its connection is being freed.
void OnClientGone(RequestCtx* ctx);
// Defined by the access server: ends the loop when a drain has nothing left to wait for.
void CheckDrained(AccessServer* server);

}  // namespace vks_host

#endif
