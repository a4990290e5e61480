#include "analysis_service.h"

#include <cstring>

#include "dxmp_message.h"
#include "reply_frame.h"

namespace analysis {
namespace {

template <typename T>
std::vector<uint8_t> Bytes(const T& record) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(&record);
    return std::vector<uint8_t>(bytes, bytes + sizeof(T));
}

AnalysisService::Answer Failed(int32_t result) {
    return AnalysisService::Answer{result, {}};
}

}  // namespace

AnalysisService::Answer AnalysisService::TaskCounts(uint16_t uri) {
    if (uri == VKS_URI_AVAILABLE_LIST) {
        _VW_AvailableList_S list{};
        return store_->GetAvailable(&list) == 0 ? Answer{ANALYSIS_RESULT_OK, Bytes(list)}
                                                : Failed(ANALYSIS_RESULT_STATE_ERROR);
    }
    _VW_CapacityList_S list{};
    return store_->GetCapacity(&list) == 0 ? Answer{ANALYSIS_RESULT_OK, Bytes(list)}
                                           : Failed(ANALYSIS_RESULT_STATE_ERROR);
}

AnalysisService::Answer AnalysisService::PopUps(const Request& request, bool apply) {
    if (request.method == DXMP_METHOD_GET) {
        _FaceRecPopUpPara para{};
        uint64_t channel = request.hasChannel ? request.channelId : VKS_DEFAULT_CHANNEL_ID;
        return store_->GetPopUps(channel, &para) == 0 ? Answer{ANALYSIS_RESULT_OK, Bytes(para)}
                                                      : Failed(ANALYSIS_RESULT_STATE_ERROR);
    }
    _FaceRecPopUpPara para{};
    if (request.content.size() != sizeof(para)) {
        return Failed(ANALYSIS_RESULT_BAD_REQUEST);
    }
    memcpy(&para, request.content.data(), sizeof(para));
    if (apply && store_->PutPopUps(para) != 0) {
        return Failed(ANALYSIS_RESULT_STATE_ERROR);
    }
    return Failed(ANALYSIS_RESULT_OK);  // a put answers with its result only
}

AnalysisService::Answer AnalysisService::Tasks(const Request& request) {
    if (request.hasBlock && !ValidRequestBlock(request.block)) {
        return Failed(ANALYSIS_RESULT_BAD_REQUEST);
    }
    _VW_TasksEnableList_S list{};
    return store_->GetTasks(request.channelId, request.channelGroup, &list) == 0
               ? Answer{ANALYSIS_RESULT_OK, Bytes(list)}
               : Failed(ANALYSIS_RESULT_STATE_ERROR);
}

AnalysisService::Answer AnalysisService::Handle(const Request& request, bool apply) {
    bool get = request.method == DXMP_METHOD_GET;
    switch (request.uri) {
        case VKS_URI_AVAILABLE_LIST:
        case VKS_URI_CAPACITY_LIST:
            return get ? TaskCounts(request.uri) : Failed(ANALYSIS_RESULT_UNKNOWN_COMMAND);
        case VKS_URI_FACE_REC_POPUP:
            return get || request.method == DXMP_METHOD_PUT ? PopUps(request, apply)
                                                            : Failed(ANALYSIS_RESULT_UNKNOWN_COMMAND);
        case VKS_URI_TASKS_ENABLE_LIST:
            return get ? Tasks(request) : Failed(ANALYSIS_RESULT_UNKNOWN_COMMAND);
        default:
            return Failed(ANALYSIS_RESULT_UNKNOWN_COMMAND);
    }
}

void AnalysisService::OnRequest(const srvfs::ReplyHandle& conn, std::vector<uint8_t> frame) {
    Request request;
    bool decoded = DecodeRequest(frame, &request) == 0;
    Fault fault = faults_->Draw(request.uri);
    bool faulted = fault.Changes();
    if (fault.noReply) {
        if (observer_) {
            observer_(request, decoded, nullptr, 0, faulted);
        }
        return;
    }
    Answer answer = decoded ? Handle(request, !fault.forceResult) : Failed(ANALYSIS_RESULT_BAD_REQUEST);
    ReplySpec spec;
    spec.status = fault.forceStatus ? fault.status : 200;
    spec.uri = static_cast<uint16_t>(request.uri + (fault.wrongUri ? 1 : 0));
    spec.method = request.method;
    int32_t result = fault.forceResult ? fault.result : answer.result;
    spec.result = &result;
    spec.content = std::move(answer.content);
    if (fault.contentLength >= 0) {
        spec.content.resize(static_cast<size_t>(fault.contentLength), 0);
    }
    if (observer_) {
        observer_(request, decoded, &spec, fault.delayMs, faulted);
    }
    conn.ReplyAfter(EncodeReply(spec), fault.delayMs);
}

}  // namespace analysis
