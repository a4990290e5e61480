// Turns what arrived on either road into the journal's JSON fields: the DXMP request's command,
// method, header items (the enable-list request block 0xB010 taken apart) and content, and the
// command-channel body's fields by command, each with the answer that was given.
#ifndef VKS_CONTROL_JOURNAL_DECODE_H
#define VKS_CONTROL_JOURNAL_DECODE_H

#include <json-c/json.h>

#include "analysis_request.h"
#include "cmd_channel_frame.h"
#include "reply_frame.h"

namespace control {

// {"method", "request": {...}, "answer": {...} or null when none was sent, "delayMs", "faulted"}
json_object* DescribeDxmp(const analysis::Request& request, bool decoded, const analysis::ReplySpec* reply,
                          int delayMs, bool faulted);
json_object* DescribeCommand(const cmdframe::Request& request, const cmdframe::Reply* reply, int delayMs,
                             bool faulted);

}  // namespace control

#endif
