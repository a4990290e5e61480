// The emulator's view of the records that travel on both roads, field by field (name, offset, type),
// so that the journal and the control API show them as JSON and take them back.
#ifndef VKS_CONTROL_RECORD_FIELDS_H
#define VKS_CONTROL_RECORD_FIELDS_H

#include <json-c/json.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "state_rows.h"

namespace control {

enum Kind { kU64, kI32, kU32, kText };

struct FieldSpec {
    const char* name;
    size_t offset;
    Kind kind;
    size_t size;  // the field's bytes
};

struct Fields {
    const FieldSpec* specs;
    size_t count;
    size_t recordSize;
};

// The records: a command body's leading channel, the pop-up switches, the history switch, the display
// settings, the history query and deletion, the reply fields of a query, and the fixed part of the
// enable-list request block (0xB010). Which command carries which: command_table.cpp.
extern const Fields kChannelFields, kPopUpFields, kSwitchFields, kDisplayFields, kQueryFields, kDeleteFields,
    kMsgReplyFields, kBlockFields;

// The fields that lie wholly within the bytes, little-endian as the records travel.
json_object* DecodeFields(const Fields& fields, const uint8_t* data, size_t len);
// Each field as a key every row must carry, with the range of its type.
std::vector<vks_state::KeyRule> FieldRules(const Fields& fields);
// A zero-filled record of fields.recordSize with the object's keys written in; false with "KEY: why"
// when a key is unknown or missing or its value is not of the field's type or range.
bool EncodeFields(const Fields& fields, json_object* object, std::vector<unsigned char>* record,
                  std::string* error);

}  // namespace control

#endif
