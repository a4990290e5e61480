// Records of the multi-task application, exchanged with the analysis service and the command channel
// as raw little-endian memory images. Sizes and offsets are part of the wire contract.
#ifndef VKS_MULTI_TASK_RECORDS_H
#define VKS_MULTI_TASK_RECORDS_H

#include <cstddef>
#include <cstdint>

// The module is built with hidden visibility; these types stay visible so that the template instances
// made for them (round trips, codec, responses) are exported as the host expects.
#pragma GCC visibility push(default)

// 32-bit on/off setting: 0 off, 1 on. Any 32-bit value passes through unchanged.
enum ENABLE_TYPE : int32_t { ENABLE_TYPE_OFF = 0, ENABLE_TYPE_ON = 1 };

// Creatable tasks of each kind (service command 1202).
struct _VW_AvailableList_S {
    uint64_t faceDetection;
    uint64_t vhdDetection;
    uint64_t vhdFaceMode;
};
static_assert(sizeof(_VW_AvailableList_S) == 24, "_VW_AvailableList_S size");
static_assert(offsetof(_VW_AvailableList_S, vhdDetection) == 8, "vhdDetection");
static_assert(offsetof(_VW_AvailableList_S, vhdFaceMode) == 16, "vhdFaceMode");

// Largest number of tasks of each kind (service command 1203).
struct _VW_CapacityList_S {
    uint64_t faceDetect;
    uint64_t vhdDetect;
    uint64_t vhdFaceDetect;
};
static_assert(sizeof(_VW_CapacityList_S) == 24, "_VW_CapacityList_S size");
static_assert(offsetof(_VW_CapacityList_S, vhdDetect) == 8, "vhdDetect");
static_assert(offsetof(_VW_CapacityList_S, vhdFaceDetect) == 16, "vhdFaceDetect");

// Algorithms enabled in one task.
struct _VW_TaskEnable_S {
    uint64_t channelId;
    int32_t faceDetection;
    int32_t faceAttribute;
    int32_t humanAttribute;
    int32_t faceRecognition;
    int32_t vhdDetection;
    int32_t nmvAttribute;
    int32_t vehAttribute;
};
static_assert(sizeof(_VW_TaskEnable_S) == 40, "_VW_TaskEnable_S size");
static_assert(offsetof(_VW_TaskEnable_S, faceDetection) == 8, "faceDetection");
static_assert(offsetof(_VW_TaskEnable_S, faceAttribute) == 12, "faceAttribute");
static_assert(offsetof(_VW_TaskEnable_S, humanAttribute) == 16, "humanAttribute");
static_assert(offsetof(_VW_TaskEnable_S, faceRecognition) == 20, "faceRecognition");
static_assert(offsetof(_VW_TaskEnable_S, vhdDetection) == 24, "vhdDetection");
static_assert(offsetof(_VW_TaskEnable_S, nmvAttribute) == 28, "nmvAttribute");
static_assert(offsetof(_VW_TaskEnable_S, vehAttribute) == 32, "vehAttribute");

#define VW_MAX_TASK_NUM 32

// Enable list of every task (service command 1201).
struct _VW_TasksEnableList_S {
    uint8_t reserved[16];  // the service's; never read or written by the module
    uint64_t taskNum;      // valid elements of taskEnable
    _VW_TaskEnable_S taskEnable[VW_MAX_TASK_NUM];
};
static_assert(sizeof(_VW_TasksEnableList_S) == 1304, "_VW_TasksEnableList_S size");
static_assert(offsetof(_VW_TasksEnableList_S, taskNum) == 16, "taskNum");
static_assert(offsetof(_VW_TasksEnableList_S, taskEnable) == 24, "taskEnable");

// Face-recognition pop-up switches (service command 229).
struct _FaceRecPopUpPara {
    uint64_t channelId;
    int32_t blackPopUp;
    int32_t whitePopUp;
};
static_assert(sizeof(_FaceRecPopUpPara) == 16, "_FaceRecPopUpPara size");
static_assert(offsetof(_FaceRecPopUpPara, blackPopUp) == 8, "blackPopUp");
static_assert(offsetof(_FaceRecPopUpPara, whitePopUp) == 12, "whitePopUp");

// Items displayed for a face-recognition hit (command channel 7037).
struct VW_FACE_RECOGNITION_DL_METADATA_FILTER_PARA {
    uint64_t channelId;
    ENABLE_TYPE matchRate;
    ENABLE_TYPE snapTime;
    ENABLE_TYPE deviceName;
    ENABLE_TYPE faceLibName;
    ENABLE_TYPE name;
    ENABLE_TYPE cardId;
    ENABLE_TYPE gender;
    ENABLE_TYPE province;
    ENABLE_TYPE city;
    ENABLE_TYPE cardType;
    ENABLE_TYPE birthday;
    ENABLE_TYPE blackMatchPic;
    ENABLE_TYPE whiteMatchPic;
};
static_assert(sizeof(VW_FACE_RECOGNITION_DL_METADATA_FILTER_PARA) == 64, "display filter size");
static_assert(offsetof(VW_FACE_RECOGNITION_DL_METADATA_FILTER_PARA, matchRate) == 8, "matchRate");
static_assert(offsetof(VW_FACE_RECOGNITION_DL_METADATA_FILTER_PARA, snapTime) == 12, "snapTime");
static_assert(offsetof(VW_FACE_RECOGNITION_DL_METADATA_FILTER_PARA, deviceName) == 16, "deviceName");
static_assert(offsetof(VW_FACE_RECOGNITION_DL_METADATA_FILTER_PARA, faceLibName) == 20, "faceLibName");
static_assert(offsetof(VW_FACE_RECOGNITION_DL_METADATA_FILTER_PARA, name) == 24, "name");
static_assert(offsetof(VW_FACE_RECOGNITION_DL_METADATA_FILTER_PARA, cardId) == 28, "cardId");
static_assert(offsetof(VW_FACE_RECOGNITION_DL_METADATA_FILTER_PARA, gender) == 32, "gender");
static_assert(offsetof(VW_FACE_RECOGNITION_DL_METADATA_FILTER_PARA, province) == 36, "province");
static_assert(offsetof(VW_FACE_RECOGNITION_DL_METADATA_FILTER_PARA, city) == 40, "city");
static_assert(offsetof(VW_FACE_RECOGNITION_DL_METADATA_FILTER_PARA, cardType) == 44, "cardType");
static_assert(offsetof(VW_FACE_RECOGNITION_DL_METADATA_FILTER_PARA, birthday) == 48, "birthday");
static_assert(offsetof(VW_FACE_RECOGNITION_DL_METADATA_FILTER_PARA, blackMatchPic) == 52, "blackMatchPic");
static_assert(offsetof(VW_FACE_RECOGNITION_DL_METADATA_FILTER_PARA, whiteMatchPic) == 56, "whiteMatchPic");

// History-record storage switch of a channel (command channel 22025).
struct HistoryRecordSwitch {
    uint64_t channelId;
    ENABLE_TYPE enableRecord;
};
static_assert(sizeof(HistoryRecordSwitch) == 16, "HistoryRecordSwitch size");
static_assert(offsetof(HistoryRecordSwitch, enableRecord) == 8, "enableRecord");

// History-record query, at the start of the command body of command 7032.
struct HistoryRecordQueryPara {
    char StartTime[20];
    char EndTime[20];
    uint64_t ChannelId;
    uint32_t DatabaseType;
    uint32_t FirstAttri;
    uint32_t SecondAttri;
    uint32_t reserved0;
    uint64_t LibId;
    uint8_t reserved1[128];
    uint32_t FindNum;
    uint32_t StartIndex;
    uint8_t reserved2[128];
};
static_assert(sizeof(HistoryRecordQueryPara) == 336, "HistoryRecordQueryPara size");
static_assert(offsetof(HistoryRecordQueryPara, EndTime) == 20, "EndTime");
static_assert(offsetof(HistoryRecordQueryPara, ChannelId) == 40, "ChannelId");
static_assert(offsetof(HistoryRecordQueryPara, DatabaseType) == 48, "DatabaseType");
static_assert(offsetof(HistoryRecordQueryPara, FirstAttri) == 52, "FirstAttri");
static_assert(offsetof(HistoryRecordQueryPara, SecondAttri) == 56, "SecondAttri");
static_assert(offsetof(HistoryRecordQueryPara, LibId) == 64, "LibId");
static_assert(offsetof(HistoryRecordQueryPara, FindNum) == 200, "FindNum");
static_assert(offsetof(HistoryRecordQueryPara, StartIndex) == 204, "StartIndex");

#define HISTORY_DELETE_IN_RANGE 3
#define HISTORY_DELETE_ALL 4

// History-record deletion, at the start of the command body of command 22026.
struct HistoryRecordDeletePara {
    int32_t deleteType;
    char startTime[32];
    char endTime[32];
};
static_assert(sizeof(HistoryRecordDeletePara) == 68, "HistoryRecordDeletePara size");
static_assert(offsetof(HistoryRecordDeletePara, startTime) == 4, "startTime");
static_assert(offsetof(HistoryRecordDeletePara, endTime) == 36, "endTime");

// Fixed part of the request block of the asynchronous enable-list query (header item 0xB010);
// the request line and its NUL follow at byte 288.
struct VW_JSON_MSG_S {
    uint8_t reserved0[256];
    uint32_t bufferLen;  // text length with its NUL
    uint32_t reserved1;  // 0
    uint32_t reserved2;  // 0
    uint32_t msgCount;   // 1
    uint8_t reserved3[8];
    uint32_t pBuffer;  // sender's address of the text, 32 bits
    uint32_t reserved4;
};
static_assert(sizeof(VW_JSON_MSG_S) == 288, "VW_JSON_MSG_S size");
static_assert(offsetof(VW_JSON_MSG_S, bufferLen) == 256, "bufferLen");
static_assert(offsetof(VW_JSON_MSG_S, reserved1) == 260, "byte 260");
static_assert(offsetof(VW_JSON_MSG_S, msgCount) == 268, "byte 268");
static_assert(offsetof(VW_JSON_MSG_S, pBuffer) == 280, "pBuffer");

// Service command numbers and constants of the multi-task application.
#define VKS_URI_FACE_REC_POPUP 229
#define VKS_URI_TASKS_ENABLE_LIST 1201
#define VKS_URI_AVAILABLE_LIST 1202
#define VKS_URI_CAPACITY_LIST 1203
#define VKS_DEFAULT_CHANNEL_ID 101ULL

#pragma GCC visibility pop

#endif
