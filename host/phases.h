// Runs the module's phases of one request in the order PreProc, Parse, Run, (Recv), Format.
#ifndef VKS_HOST_PHASES_H
#define VKS_HOST_PHASES_H

#include "phase_request.h"

namespace vks_host {

// PreProc, Parse and Run, stopping at the first phase that fails; r->result is that phase's result
// (0 when all succeeded).
void RunFrontPhases(PhaseRequest* r);

// True when Run succeeded and left a registration: the reply must be awaited, then Recv runs.
bool AwaitsReply(const PhaseRequest& r);

// Drops a registration: closes the descriptor and releases the request reference.
void CancelRegistration(PhaseRequest* r);

// Recv, with the reply already in client.pRecvMsg.
void RunRecvPhase(PhaseRequest* r);

// Format, then the status envelope when Format wrote nothing, then the slots and any reply the
// module left unconsumed are released.
void RunFormatPhase(PhaseRequest* r);

// The outcome the answer reports: the request's result, or -1 when it succeeded but Format failed.
VW_RESULT_TYPE EffectiveResult(const PhaseRequest& r);

// Releases whatever the three slots hold and a reply that no Recv consumed, and nulls them. Safe to
// call again: Format's end and the request's end both call it.
void ReleaseRequestData(PhaseRequest* r);

}  // namespace vks_host

#endif
