// The binding list of every record that travels as JSON: one declaration per record, in JSON key
// order, driving both encoding and decoding. A member left out of a list (the leading channel ids
// of the settings records, reserved bytes) is never written and never changed by decoding.
#ifndef RECORD_BINDINGS_H
#define RECORD_BINDINGS_H

#include "json_codec.h"
#include "vks_multi_task_records.h"
#include "zkapi_common.h"

#include <stddef.h>

// The envelope is the host's record; its layout is checked here, where the codec relies on it.
static_assert(sizeof(ZKAPI_RESPONSE_STATUS) == 392, "ZKAPI_RESPONSE_STATUS size");
static_assert(offsetof(ZKAPI_RESPONSE_STATUS, StatusCode) == 256, "StatusCode");
static_assert(offsetof(ZKAPI_RESPONSE_STATUS, StatusString) == 264, "StatusString");
static_assert(sizeof(ZKAPI_RESPONSE) == 400, "ZKAPI_RESPONSE size");
static_assert(offsetof(ZKAPI_RESPONSE, ResponseStatus) == 8, "ResponseStatus");

template <>
struct jsonMembers<ZKAPI_RESPONSE_STATUS> {
    template <typename A, typename D, typename F>
    static decltype(auto) bind(F&& f) {
        using R = ZKAPI_RESPONSE_STATUS;
        return f(json_member<A, D>(&R::RequestURL, "RequestURL"),
                 json_member<A, D>(&R::StatusCode, "StatusCode"),
                 json_member<A, D>(&R::StatusString, "StatusString"));
    }
};

// The host's leading version field is not part of the envelope.
template <>
struct jsonMembers<ZKAPI_RESPONSE> {
    template <typename A, typename D, typename F>
    static decltype(auto) bind(F&& f) {
        using R = ZKAPI_RESPONSE;
        return f(json_member<A, D>(&R::ResponseStatus, "ResponseStatus"));
    }
};

template <>
struct jsonMembers<HistoryRecordSwitch> {
    template <typename A, typename D, typename F>
    static decltype(auto) bind(F&& f) {
        using R = HistoryRecordSwitch;
        return f(json_member<A, D>(&R::channelId, "channelId"),
                 json_member<A, D>(&R::enableRecord, "enableRecord"));
    }
};

template <>
struct jsonMembers<VW_FACE_RECOGNITION_DL_METADATA_FILTER_PARA> {
    template <typename A, typename D, typename F>
    static decltype(auto) bind(F&& f) {
        using R = VW_FACE_RECOGNITION_DL_METADATA_FILTER_PARA;
        return f(json_member<A, D>(&R::matchRate, "matchRate"), json_member<A, D>(&R::snapTime, "snapTime"),
                 json_member<A, D>(&R::deviceName, "deviceName"),
                 json_member<A, D>(&R::faceLibName, "faceLibName"), json_member<A, D>(&R::name, "name"),
                 json_member<A, D>(&R::cardId, "cardId"), json_member<A, D>(&R::gender, "gender"),
                 json_member<A, D>(&R::province, "province"), json_member<A, D>(&R::city, "city"),
                 json_member<A, D>(&R::cardType, "cardType"), json_member<A, D>(&R::birthday, "birthday"),
                 json_member<A, D>(&R::blackMatchPic, "blackMatchPic"),
                 json_member<A, D>(&R::whiteMatchPic, "whiteMatchPic"));
    }
};

template <>
struct jsonMembers<_FaceRecPopUpPara> {
    template <typename A, typename D, typename F>
    static decltype(auto) bind(F&& f) {
        using R = _FaceRecPopUpPara;
        return f(json_member<A, D>(&R::blackPopUp, "blackPopUp"),
                 json_member<A, D>(&R::whitePopUp, "whitePopUp"));
    }
};

template <>
struct jsonMembers<_VW_AvailableList_S> {
    template <typename A, typename D, typename F>
    static decltype(auto) bind(F&& f) {
        using R = _VW_AvailableList_S;
        return f(json_member<A, D>(&R::faceDetection, "faceDetection"),
                 json_member<A, D>(&R::vhdDetection, "vhdDetection"),
                 json_member<A, D>(&R::vhdFaceMode, "vhdFaceMode"));
    }
};

template <>
struct jsonMembers<_VW_CapacityList_S> {
    template <typename A, typename D, typename F>
    static decltype(auto) bind(F&& f) {
        using R = _VW_CapacityList_S;
        return f(json_member<A, D>(&R::faceDetect, "faceDetect"),
                 json_member<A, D>(&R::vhdDetect, "vhdDetect"),
                 json_member<A, D>(&R::vhdFaceDetect, "vhdFaceDetect"));
    }
};

template <>
struct jsonMembers<_VW_TaskEnable_S> {
    template <typename A, typename D, typename F>
    static decltype(auto) bind(F&& f) {
        using R = _VW_TaskEnable_S;
        return f(json_member<A, D>(&R::channelId, "channelId"),
                 json_member<A, D>(&R::faceDetection, "faceDetection"),
                 json_member<A, D>(&R::faceAttribute, "faceAttribute"),
                 json_member<A, D>(&R::humanAttribute, "humanAttribute"),
                 json_member<A, D>(&R::faceRecognition, "faceRecognition"),
                 json_member<A, D>(&R::vhdDetection, "vhdDetection"),
                 json_member<A, D>(&R::nmvAttribute, "nmvAttribute"),
                 json_member<A, D>(&R::vehAttribute, "vehAttribute"));
    }
};

// The count precedes the array it bounds.
template <>
struct jsonMembers<_VW_TasksEnableList_S> {
    template <typename A, typename D, typename F>
    static decltype(auto) bind(F&& f) {
        using R = _VW_TasksEnableList_S;
        return f(json_member<A, D>(&R::taskNum, "taskNum"),
                 json_array_member<A, D>(&R::taskEnable, "taskEnable", &R::taskNum));
    }
};

#endif
