#include "cmd_handlers.h"

#include <string.h>

#include "command_table.h"
#include "result_file.h"
#include "state_rows.h"
#include "vks_multi_task_records.h"
#include "vw_result.h"

namespace cmdchan {
namespace {

using control::CommandRole;

uint64_t LeadingChannel(const std::vector<unsigned char>& payload) {
    uint64_t channelId = 0;
    memcpy(&channelId, payload.data(), sizeof(channelId));
    return channelId;
}

// A setting: a read names the channel in the body's first 8 bytes and gets the stored record (or
// the descriptor's default), a write stores a record of exactly the descriptor's length under the
// channel it carries.
int32_t HandleSetting(Store* store, const control::CommandSpec& spec, const cmdframe::Request& request,
                      cmdframe::Reply* reply) {
    if (request.op == cmdframe::kOpGet && request.payload.size() >= sizeof(uint64_t)) {
        uint64_t channelId = LeadingChannel(request.payload);
        int found = store->GetSetting(spec.code, channelId, &reply->payload);
        if (found == 0) {
            reply->payload = control::DefaultRecord(spec, channelId);
        }
        return found < 0 ? VW_FAILED : VW_SUCCESS;
    }
    if (request.op == cmdframe::kOpSet && request.payload.size() == spec.record->recordSize) {
        bool stored = store->PutSetting(spec.code, LeadingChannel(request.payload), request.payload);
        return stored ? VW_SUCCESS : VW_FAILED;
    }
    return VW_PARAM_ERROR;
}

// A text field of a request record, cut at its end when the sender left it unterminated.
std::string FieldText(const char* field, size_t size) {
    return std::string(field, strnlen(field, size));
}

int32_t RunQuery(CommandContext* ctx, const HistoryRecordQueryPara& para, std::string* path) {
    HistoryFilter filter;
    filter.startTime = FieldText(para.StartTime, sizeof(para.StartTime));
    filter.endTime = FieldText(para.EndTime, sizeof(para.EndTime));
    if ((!filter.startTime.empty() && !vks_state::ValidTime(filter.startTime.c_str())) ||
        !vks_state::ValidTime(filter.endTime.c_str())) {
        return VW_PARAM_ERROR;
    }
    filter.channelId = para.ChannelId;
    filter.databaseType = para.DatabaseType;
    filter.firstAttri = para.FirstAttri;
    filter.secondAttri = para.SecondAttri;
    filter.libId = para.LibId;
    std::vector<HistoryRow> rows;
    long long total = 0;
    uint32_t count = para.FindNum < kMaxFindNum ? para.FindNum : kMaxFindNum;
    if (!ctx->store->Query(filter, para.StartIndex, count, &rows, &total)) {
        return VW_FAILED;
    }
    std::string error;
    if (ctx->badPath) {
        *path = ctx->resultDir + "/" + ResultName();
    } else if (!WriteResultFile(ctx->resultDirFd, ctx->resultDir,
                                HistoryResultJson(total, para.StartIndex, rows), path, &error)) {
        return VW_FAILED;
    }
    if (ctx->shrinkResult) {
        ctx->watcher.reset();  // one watched file at a time
        ctx->watcher = ShrinkWatcher::Start(*path, &error);
        if (!ctx->watcher) {
            return VW_FAILED;
        }
    }
    return VW_SUCCESS;
}

// The history query: the query record at the body's start; the answer is a MSG_DATA naming the result file.
void HandleQuery(CommandContext* ctx, const cmdframe::Request& request, cmdframe::Reply* reply) {
    if (request.op != cmdframe::kOpMsg) {
        reply->result = VW_PARAM_ERROR;  // only a message reply carries a MSG_DATA
        return;
    }
    if (request.payload.size() < sizeof(HistoryRecordQueryPara)) {
        FillMsgResult(request.cmd, VW_PARAM_ERROR, "", reply);
        return;
    }
    HistoryRecordQueryPara para;
    memcpy(&para, request.payload.data(), sizeof(para));
    std::string path;
    int32_t result = RunQuery(ctx, para, &path);
    FillMsgResult(request.cmd, result, result == VW_SUCCESS ? path : "", reply);
}

// The history deletion: type 3 deletes the records of a time range, type 4 every record.
int32_t HandleDelete(Store* store, const cmdframe::Request& request) {
    if (request.op != cmdframe::kOpSet || request.payload.size() < sizeof(HistoryRecordDeletePara)) {
        return VW_PARAM_ERROR;
    }
    HistoryRecordDeletePara para;
    memcpy(&para, request.payload.data(), sizeof(para));
    std::string start = FieldText(para.startTime, sizeof(para.startTime));
    std::string end = FieldText(para.endTime, sizeof(para.endTime));
    bool all = para.deleteType == HISTORY_DELETE_ALL;
    if (!all && (para.deleteType != HISTORY_DELETE_IN_RANGE || !vks_state::ValidTime(start.c_str()) ||
                 !vks_state::ValidTime(end.c_str()))) {
        return VW_PARAM_ERROR;
    }
    return store->Delete(start, end, all) < 0 ? VW_FAILED : VW_SUCCESS;
}

}  // namespace

void FillMsgResult(uint32_t cmd, int32_t result, const std::string& path, cmdframe::Reply* reply) {
    MSG_DATA msg;
    memset(&msg, 0, sizeof(msg));
    msg.recvMsgCode = static_cast<int32_t>(cmd);
    msg.result = result;
    // Result directories are checked at start-up so that every path fits with its NUL.
    strncpy(msg.szPath, path.c_str(), sizeof(msg.szPath) - 1);
    const unsigned char* p = reinterpret_cast<const unsigned char*>(&msg);
    reply->payload.assign(p, p + sizeof(msg));
}

void HandleCommand(CommandContext* ctx, const cmdframe::Request& request, cmdframe::Reply* reply) {
    const control::CommandSpec* spec = control::FindCommand(COMMAND_ROAD_CMD, static_cast<int>(request.cmd));
    CommandRole role = spec != nullptr ? spec->role : CommandRole::kService;
    if (role == CommandRole::kSetting) {
        reply->result = HandleSetting(ctx->store, *spec, request, reply);
    } else if (role == CommandRole::kQuery) {
        HandleQuery(ctx, request, reply);
        return;  // the MSG_DATA carries the service's result; the frame's stays 0
    } else if (role == CommandRole::kDelete) {
        reply->result = HandleDelete(ctx->store, request);
    } else {
        reply->result = VW_PARAM_ERROR;  // not a command of this road
    }
    // A failed read carries no record: the client's record slot stays as it was.
    if (reply->result != VW_SUCCESS) {
        reply->payload.clear();
    }
}

}  // namespace cmdchan
