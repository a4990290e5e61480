#include "codec_baseline.h"

#include <string.h>

#include <json-c/json.h>

namespace {

void AddUnsigned(json_object* object, const char* key, uint64_t value) {
    json_object_object_add(object, key, json_object_new_uint64(value));
}

void AddSigned(json_object* object, const char* key, int32_t value) {
    json_object_object_add(object, key, json_object_new_int(value));
}

json_object* TaskObject(const _VW_TaskEnable_S& task) {
    json_object* object = json_object_new_object();
    AddUnsigned(object, "channelId", task.channelId);
    AddSigned(object, "faceDetection", task.faceDetection);
    AddSigned(object, "faceAttribute", task.faceAttribute);
    AddSigned(object, "humanAttribute", task.humanAttribute);
    AddSigned(object, "faceRecognition", task.faceRecognition);
    AddSigned(object, "vhdDetection", task.vhdDetection);
    AddSigned(object, "nmvAttribute", task.nmvAttribute);
    AddSigned(object, "vehAttribute", task.vehAttribute);
    return object;
}

// Integer, boolean and real values only, as the codec accepts them for a 32-bit flag.
int ReadFlag(json_object* body, const char* key, ENABLE_TYPE* flag) {
    json_object* value = nullptr;
    if (!json_object_object_get_ex(body, key, &value) || value == nullptr) {
        return 0;
    }
    switch (json_object_get_type(value)) {
        case json_type_int:
            *flag = static_cast<ENABLE_TYPE>(static_cast<int32_t>(json_object_get_int64(value)));
            return 0;
        case json_type_boolean:
            *flag = static_cast<ENABLE_TYPE>(json_object_get_boolean(value) ? 1 : 0);
            return 0;
        case json_type_double:
            *flag = static_cast<ENABLE_TYPE>(
                static_cast<int32_t>(static_cast<uint32_t>(json_object_get_double(value))));
            return 0;
        default:
            return -1;
    }
}

}  // namespace

char* BaselineEncodeTasks(const _VW_TasksEnableList_S& list) {
    if (list.taskNum > VW_MAX_TASK_NUM) {
        return nullptr;
    }
    json_object* root = json_object_new_object();
    AddUnsigned(root, "taskNum", list.taskNum);
    if (list.taskNum > 0) {
        json_object* array = json_object_new_array();
        for (uint64_t i = 0; i < list.taskNum; ++i) {
            json_object_array_add(array, TaskObject(list.taskEnable[i]));
        }
        json_object_object_add(root, "taskEnable", array);
    }
    char* text = strdup(
        json_object_to_json_string_ext(root, JSON_C_TO_STRING_SPACED | JSON_C_TO_STRING_NOSLASHESCAPE));
    json_object_put(root);
    return text;
}

int BaselineDecodeFilter(const char* body, VW_FACE_RECOGNITION_DL_METADATA_FILTER_PARA* record) {
    json_object* tree = json_tokener_parse(body);
    if (tree == nullptr || !json_object_is_type(tree, json_type_object)) {
        json_object_put(tree);
        return -1;
    }
    static const char* const kKeys[] = {
        "matchRate", "snapTime", "deviceName", "faceLibName", "name",          "cardId",       "gender",
        "province",  "city",     "cardType",   "birthday",    "blackMatchPic", "whiteMatchPic"};
    ENABLE_TYPE* flags = &record->matchRate;
    int ret = 0;
    for (size_t i = 0; ret == 0 && i < sizeof(kKeys) / sizeof(kKeys[0]); ++i) {
        ret = ReadFlag(tree, kKeys[i], &flags[i]);
    }
    json_object_put(tree);
    return ret;
}
