#include "codec_baseline.h"

#include <stdlib.h>
#include <string.h>

#include <json-c/json.h>

#include "json_codec/json_scalar_value.h"

namespace {

// Keys are literals and each is added once: json-c need neither copy them nor look for an old one.
const unsigned kNewConstantKey = JSON_C_OBJECT_ADD_KEY_IS_NEW | JSON_C_OBJECT_KEY_IS_CONSTANT;

void AddUnsigned(json_object* object, const char* key, uint64_t value) {
    json_object_object_add_ex(object, key, json_object_new_uint64(value), kNewConstantKey);
}

void AddSigned(json_object* object, const char* key, int32_t value) {
    json_object_object_add_ex(object, key, json_object_new_int(value), kNewConstantKey);
}

// The spaced print without the blanks just inside brackets, copied in the same pass from bracket to
// bracket. The text holds only fixed keys and numbers, so no bracket or blank can be inside a string.
char* SqueezedCopy(const char* text, size_t length) {
    char* out = static_cast<char*>(malloc(length + 1));
    if (out == nullptr) {
        return nullptr;
    }
    char* o = out;
    const char* in = text;
    for (;;) {
        const char* bracket = strpbrk(in, "{}[]");
        size_t span = static_cast<size_t>((bracket != nullptr ? bracket : text + length) - in);
        bool closing = bracket != nullptr && (*bracket == '}' || *bracket == ']');
        if (closing && span > 0 && in[span - 1] == ' ') {
            --span;
        }
        memcpy(o, in, span);
        o += span;
        if (bracket == nullptr) {
            break;
        }
        *o++ = *bracket;
        in = bracket + 1;
        if (!closing && *in == ' ') {
            ++in;
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

// Integer, boolean and real values only, converted as the codec converts them for a 32-bit flag;
// no value (an absent key or JSON null) leaves the flag as it was.
int ReadValue(json_object* value, ENABLE_TYPE* flag) {
    if (value == nullptr) {
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
            *flag = static_cast<ENABLE_TYPE>(static_cast<int32_t>(
                json_codec_detail::SaturatedUnsigned(json_object_get_double(value), 32)));
            return 0;
        default:
            return -1;
    }
}

// Strict, like the host's parser: one value and nothing after it.
json_tokener* NewStrictTokener() {
    json_tokener* tokener = json_tokener_new();
    if (tokener != nullptr) {
        json_tokener_set_flags(tokener, JSON_TOKENER_STRICT);
    }
    return tokener;
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
    // One tokener for every call, reset before each parse: no allocation of its own per body. The
    // whole text is read, its NUL included, so that anything after the value is an error.
    static json_tokener* tokener = NewStrictTokener();
    json_tokener_reset(tokener);
    json_object* tree = json_tokener_parse_ex(tokener, body, static_cast<int>(strlen(body) + 1));
    if (tree == nullptr || json_tokener_get_error(tokener) != json_tokener_success) {
        json_object_put(tree);
        return -1;
    }
    // One walk over the body's members (faster than a hashed lookup per flag); the values are then
    // read in flag order, so that a rejected one leaves the flags after it alone, as in the codec.
    // A value that is not an object has no members: every flag stays as it was.
    static const char* const kKeys[] = {
        "matchRate", "snapTime", "deviceName", "faceLibName", "name",          "cardId",       "gender",
        "province",  "city",     "cardType",   "birthday",    "blackMatchPic", "whiteMatchPic"};
    const size_t count = sizeof(kKeys) / sizeof(kKeys[0]);
    json_object* values[count] = {};
    if (json_object_is_type(tree, json_type_object)) {
        json_object_object_foreach(tree, key, value) {
            size_t i = 0;
            while (i < count && (key[0] != kKeys[i][0] || strcmp(key, kKeys[i]) != 0)) {
                ++i;
            }
            if (i < count) {
                values[i] = value;
            }
        }
    }
    ENABLE_TYPE* flags = &record->matchRate;
    int ret = 0;
    for (size_t i = 0; ret == 0 && i < count; ++i) {
        ret = ReadValue(values[i], &flags[i]);
    }
    json_object_put(tree);
    return ret;
}
