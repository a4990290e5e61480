#include "codec_baseline.h"

#include <stdlib.h>

#include <json-c/json.h>

namespace {

// Keys are literals and each is added once: json-c need neither copy them nor look for an old one.
const unsigned kNewConstantKey = JSON_C_OBJECT_ADD_KEY_IS_NEW | JSON_C_OBJECT_KEY_IS_CONSTANT;

void AddUnsigned(json_object* object, const char* key, uint64_t value) {
    json_object_object_add_ex(object, key, json_object_new_uint64(value), kNewConstantKey);
}

void AddSigned(json_object* object, const char* key, int32_t value) {
    json_object_object_add_ex(object, key, json_object_new_int(value), kNewConstantKey);
}

// The spaced print without the blanks just inside brackets, copied in the same pass. The text holds
// only fixed keys and numbers, so no bracket or blank can be inside a string.
char* SqueezedCopy(const char* text, size_t length) {
    char* out = static_cast<char*>(malloc(length + 1));
    if (out == nullptr) {
        return nullptr;
    }
    char* o = out;
    for (size_t i = 0; i < length; ++i) {
        char c = text[i];
        bool inner = c == ' ' && ((o > out && (o[-1] == '{' || o[-1] == '[')) || text[i + 1] == '}' ||
                                  text[i + 1] == ']');
        if (!inner) {
            *o++ = c;
        }
    }
    *o = '\0';
    return out;
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
        json_object* array = json_object_new_array_ext(static_cast<int>(list.taskNum));
        for (uint64_t i = 0; i < list.taskNum; ++i) {
            json_object_array_add(array, TaskObject(list.taskEnable[i]));
        }
        json_object_object_add_ex(root, "taskEnable", array, kNewConstantKey);
    }
    size_t length = 0;
    const char* printed = json_object_to_json_string_length(
        root, JSON_C_TO_STRING_SPACED | JSON_C_TO_STRING_NOSLASHESCAPE, &length);
    char* text = printed != nullptr ? SqueezedCopy(printed, length) : nullptr;
    json_object_put(root);
    return text;
}

int BaselineDecodeFilter(const char* body, VW_FACE_RECOGNITION_DL_METADATA_FILTER_PARA* record) {
    // One tokener for every call, reset before each parse: no allocation of its own per body.
    static json_tokener* tokener = json_tokener_new();
    json_tokener_reset(tokener);
    json_object* tree = json_tokener_parse_ex(tokener, body, -1);
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
