#include "record_fields.h"

#include <cstring>

#include "intelligent/comm/vks_multi_task_records.h"
#include "unix_cmd_channel.h"

namespace control {
namespace {

#define FIELD(rec, member, kind) \
    { #member, offsetof(rec, member), kind, sizeof(rec::member) }

const FieldSpec kChannel[] = {{"channelId", 0, kU64, 8}};
const FieldSpec kPopUps[] = {FIELD(_FaceRecPopUpPara, channelId, kU64),
                             FIELD(_FaceRecPopUpPara, blackPopUp, kI32),
                             FIELD(_FaceRecPopUpPara, whitePopUp, kI32)};
const FieldSpec kSwitch[] = {FIELD(HistoryRecordSwitch, channelId, kU64),
                             FIELD(HistoryRecordSwitch, enableRecord, kI32)};
using Display = VW_FACE_RECOGNITION_DL_METADATA_FILTER_PARA;
const FieldSpec kDisplay[] = {
    FIELD(Display, channelId, kU64),     FIELD(Display, matchRate, kI32),    FIELD(Display, snapTime, kI32),
    FIELD(Display, deviceName, kI32),    FIELD(Display, faceLibName, kI32),  FIELD(Display, name, kI32),
    FIELD(Display, cardId, kI32),        FIELD(Display, gender, kI32),       FIELD(Display, province, kI32),
    FIELD(Display, city, kI32),          FIELD(Display, cardType, kI32),     FIELD(Display, birthday, kI32),
    FIELD(Display, blackMatchPic, kI32), FIELD(Display, whiteMatchPic, kI32)};
const FieldSpec kQuery[] = {
    FIELD(HistoryRecordQueryPara, StartTime, kText), FIELD(HistoryRecordQueryPara, EndTime, kText),
    FIELD(HistoryRecordQueryPara, ChannelId, kU64),  FIELD(HistoryRecordQueryPara, DatabaseType, kU32),
    FIELD(HistoryRecordQueryPara, FirstAttri, kU32), FIELD(HistoryRecordQueryPara, SecondAttri, kU32),
    FIELD(HistoryRecordQueryPara, LibId, kU64),      FIELD(HistoryRecordQueryPara, FindNum, kU32),
    FIELD(HistoryRecordQueryPara, StartIndex, kU32)};
const FieldSpec kDelete[] = {FIELD(HistoryRecordDeletePara, deleteType, kI32),
                             FIELD(HistoryRecordDeletePara, startTime, kText),
                             FIELD(HistoryRecordDeletePara, endTime, kText)};
const FieldSpec kMsgReply[] = {FIELD(MSG_DATA, recvMsgCode, kI32), FIELD(MSG_DATA, result, kI32),
                               FIELD(MSG_DATA, szPath, kText)};
const FieldSpec kBlock[] = {FIELD(VW_JSON_MSG_S, bufferLen, kU32), FIELD(VW_JSON_MSG_S, reserved1, kU32),
                            FIELD(VW_JSON_MSG_S, reserved2, kU32), FIELD(VW_JSON_MSG_S, msgCount, kU32),
                            FIELD(VW_JSON_MSG_S, pBuffer, kU32)};

template <size_t N>
constexpr Fields Of(const FieldSpec (&specs)[N], size_t recordSize) {
    return Fields{specs, N, recordSize};
}

const FieldSpec* Find(const Fields& fields, const char* name) {
    for (size_t i = 0; i < fields.count; ++i) {
        if (strcmp(fields.specs[i].name, name) == 0) {
            return &fields.specs[i];
        }
    }
    return nullptr;
}

void Store(const FieldSpec& f, json_object* value, unsigned char* at) {
    if (f.kind == kText) {
        const char* text = json_object_get_string(value);
        memcpy(at, text, strlen(text));  // checked to fit with its NUL
    } else if (f.kind == kU64) {
        uint64_t u = json_object_get_uint64(value);
        memcpy(at, &u, sizeof(u));
    } else {
        int32_t narrow = static_cast<int32_t>(json_object_get_int64(value));
        memcpy(at, &narrow, sizeof(narrow));
    }
}

}  // namespace

const Fields kChannelFields = Of(kChannel, sizeof(uint64_t));
const Fields kPopUpFields = Of(kPopUps, sizeof(_FaceRecPopUpPara));
const Fields kSwitchFields = Of(kSwitch, sizeof(HistoryRecordSwitch));
const Fields kDisplayFields = Of(kDisplay, sizeof(Display));
const Fields kQueryFields = Of(kQuery, sizeof(HistoryRecordQueryPara));
const Fields kDeleteFields = Of(kDelete, sizeof(HistoryRecordDeletePara));
const Fields kMsgReplyFields = Of(kMsgReply, sizeof(MSG_DATA));
const Fields kBlockFields = Of(kBlock, sizeof(VW_JSON_MSG_S));

json_object* DecodeFields(const Fields& fields, const uint8_t* data, size_t len) {
    json_object* out = json_object_new_object();
    for (size_t i = 0; i < fields.count; ++i) {
        const FieldSpec& f = fields.specs[i];
        if (f.offset + f.size > len) {
            continue;
        }
        const uint8_t* at = data + f.offset;
        json_object* value = nullptr;
        if (f.kind == kU64) {
            uint64_t v;
            memcpy(&v, at, sizeof(v));
            value = json_object_new_uint64(v);
        } else if (f.kind == kI32) {
            int32_t v;
            memcpy(&v, at, sizeof(v));
            value = json_object_new_int(v);
        } else if (f.kind == kU32) {
            uint32_t v;
            memcpy(&v, at, sizeof(v));
            value = json_object_new_int64(v);
        } else {
            const char* text = reinterpret_cast<const char*>(at);
            value = json_object_new_string_len(text, static_cast<int>(strnlen(text, f.size)));
        }
        json_object_object_add(out, f.name, value);
    }
    return out;
}

std::vector<vks_state::KeyRule> FieldRules(const Fields& fields) {
    std::vector<vks_state::KeyRule> rules;
    for (size_t i = 0; i < fields.count; ++i) {
        const FieldSpec& f = fields.specs[i];
        using vks_state::KeyRule;
        rules.push_back(f.kind == kU64 ? KeyRule{f.name, KeyRule::kInteger, 0, vks_state::kU64Max, true}
                        : f.kind == kI32
                            ? KeyRule{f.name, KeyRule::kInteger, vks_state::kI32Min, vks_state::kI32Max, true}
                        : f.kind == kU32 ? KeyRule{f.name, KeyRule::kInteger, 0, vks_state::kU32Max, true}
                                         : KeyRule{f.name, KeyRule::kText, 0, f.size - 1, true});
    }
    return rules;
}

bool EncodeFields(const Fields& fields, json_object* object, std::vector<unsigned char>* record,
                  std::string* error) {
    record->assign(fields.recordSize, 0);
    if (!vks_state::CheckRow(FieldRules(fields), object, error)) {
        return false;
    }
    json_object_object_foreach(object, key, value) {
        const FieldSpec* f = Find(fields, key);
        Store(*f, value, record->data() + f->offset);
    }
    return true;
}

}  // namespace control
