#include "cmd_handlers.h"

#include <string.h>

#include "result_file.h"
#include "vks_multi_task_records.h"
#include "vw_result.h"

namespace cmdchan {
namespace {

// Settings of a channel nothing was stored for: everything on.
std::vector<unsigned char> DefaultSetting(uint32_t cmd, uint64_t channelId) {
    if (cmd == VW_CMD_HISTORY_SWITCH) {
        HistoryRecordSwitch rec = {channelId, ENABLE_TYPE_ON};
        const unsigned char* p = reinterpret_cast<const unsigned char*>(&rec);
        return std::vector<unsigned char>(p, p + sizeof(rec));
    }
    // Thirteen 32-bit flags after the channel, then 4 bytes of padding.
    std::vector<unsigned char> rec(sizeof(VW_FACE_RECOGNITION_DL_METADATA_FILTER_PARA), 0);
    memcpy(rec.data(), &channelId, sizeof(channelId));
    const int32_t on = ENABLE_TYPE_ON;
    for (size_t off = offsetof(VW_FACE_RECOGNITION_DL_METADATA_FILTER_PARA, matchRate);
         off <= offsetof(VW_FACE_RECOGNITION_DL_METADATA_FILTER_PARA, whiteMatchPic); off += sizeof(on)) {
        memcpy(rec.data() + off, &on, sizeof(on));
    }
    return rec;
}

uint64_t LeadingChannel(const std::vector<unsigned char>& payload) {
    uint64_t channelId = 0;
    memcpy(&channelId, payload.data(), sizeof(channelId));
    return channelId;
}

// 22025 and 7037: a read names the channel in the body's first 8 bytes, a write stores the record
// under the channel it carries.
int32_t HandleSetting(Store* store, const cmdframe::Request& request, cmdframe::Reply* reply) {
    size_t recordLen = request.cmd == VW_CMD_HISTORY_SWITCH
                           ? sizeof(HistoryRecordSwitch)
                           : sizeof(VW_FACE_RECOGNITION_DL_METADATA_FILTER_PARA);
    if (request.op == cmdframe::kOpGet && request.payload.size() >= sizeof(uint64_t)) {
        uint64_t channelId = LeadingChannel(request.payload);
        int found = store->GetSetting(static_cast<int>(request.cmd), channelId, &reply->payload);
        if (found == 0) {
            reply->payload = DefaultSetting(request.cmd, channelId);
        }
        return found < 0 ? VW_FAILED : VW_SUCCESS;
    }
    if (request.op == cmdframe::kOpSet && request.payload.size() == recordLen) {
        bool stored = store->PutSetting(static_cast<int>(request.cmd), LeadingChannel(request.payload),
                                        request.payload);
        return stored ? VW_SUCCESS : VW_FAILED;
    }
    return VW_PARAM_ERROR;
}

// Times are "YYYY-MM-DDTHH:MM:SS": fixed width, so text order is time order.
bool ValidTime(const char* text) {
    static const char kPattern[] = "dddd-dd-ddTdd:dd:dd";
    if (strlen(text) != sizeof(kPattern) - 1) {
        return false;
    }
    for (size_t i = 0; kPattern[i] != '\0'; ++i) {
        bool digit = text[i] >= '0' && text[i] <= '9';
        if (kPattern[i] == 'd' ? !digit : text[i] != kPattern[i]) {
            return false;
        }
    }
    return true;
}

// A text field of a request record, cut at its end when the sender left it unterminated.
std::string FieldText(const char* field, size_t size) {
    return std::string(field, strnlen(field, size));
}

int32_t RunQuery(CommandContext* ctx, const HistoryRecordQueryPara& para, std::string* path) {
    HistoryFilter filter;
    filter.startTime = FieldText(para.StartTime, sizeof(para.StartTime));
    filter.endTime = FieldText(para.EndTime, sizeof(para.EndTime));
    if ((!filter.startTime.empty() && !ValidTime(filter.startTime.c_str())) ||
        !ValidTime(filter.endTime.c_str())) {
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

// 7032: the query record at the body's start; the answer is a MSG_DATA naming the result file.
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

// 22026: type 3 deletes the records of a time range, type 4 every record.
int32_t HandleDelete(Store* store, const cmdframe::Request& request) {
    if (request.op != cmdframe::kOpSet || request.payload.size() < sizeof(HistoryRecordDeletePara)) {
        return VW_PARAM_ERROR;
    }
    HistoryRecordDeletePara para;
    memcpy(&para, request.payload.data(), sizeof(para));
    std::string start = FieldText(para.startTime, sizeof(para.startTime));
    std::string end = FieldText(para.endTime, sizeof(para.endTime));
    bool all = para.deleteType == HISTORY_DELETE_ALL;
    if (!all && (para.deleteType != HISTORY_DELETE_IN_RANGE || !ValidTime(start.c_str()) ||
                 !ValidTime(end.c_str()))) {
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
    switch (request.cmd) {
        case VW_CMD_HISTORY_SWITCH:
        case VW_CMD_DISPLAY_RECOG_INFOS:
            reply->result = HandleSetting(ctx->store, request, reply);
            break;
        case VW_CMD_GET_HISTORY_RECORDS:
            HandleQuery(ctx, request, reply);
            return;  // the MSG_DATA carries the service's result; the frame's stays 0
        case VW_CMD_DELETE_HISTORY_RECORDS:
            reply->result = HandleDelete(ctx->store, request);
            break;
        default:
            reply->result = VW_PARAM_ERROR;
            break;
    }
    // A failed read carries no record: the client's record slot stays as it was.
    if (reply->result != VW_SUCCESS) {
        reply->payload.clear();
    }
}

}  // namespace cmdchan
