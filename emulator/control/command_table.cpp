#include "command_table.h"

#include <cstring>

#include "intelligent/comm/vks_multi_task_records.h"
#include "unix_cmd_channel.h"

namespace control {

// Each row names, above it, the module's resources whose requests arrive as that command.
const std::vector<CommandSpec>& Commands() {
    static const std::vector<CommandSpec> kCommands = {
        // MultiTaskAppDisplayRecogPopUps GET, PUT
        {COMMAND_ROAD_ANALYSIS, VKS_URI_FACE_REC_POPUP, "faceRecPopUps", CommandRole::kService, &kPopUpFields,
         nullptr, 0, "popUps"},
        // MultiTaskAppTaskModesEnableList GET
        {COMMAND_ROAD_ANALYSIS, VKS_URI_TASKS_ENABLE_LIST, "tasksEnableList", CommandRole::kService, nullptr,
         nullptr, 0, "tasks"},
        // MultiTaskAppTaskModesAvailableList GET
        {COMMAND_ROAD_ANALYSIS, VKS_URI_AVAILABLE_LIST, "availableList", CommandRole::kService, nullptr,
         nullptr, 0, "counts"},
        // MultiTaskAppTaskModesCapacity GET
        {COMMAND_ROAD_ANALYSIS, VKS_URI_CAPACITY_LIST, "capacityList", CommandRole::kService, nullptr,
         nullptr, 0, "counts"},
        // MultiTaskAppHistoryRecords GET
        {COMMAND_ROAD_CMD, VW_CMD_GET_HISTORY_RECORDS, "historyQuery", CommandRole::kQuery, &kQueryFields,
         &kMsgReplyFields, 0, "historyRecords"},
        // MultiTaskAppDisplayRecogInfos GET, PUT
        {COMMAND_ROAD_CMD, VW_CMD_DISPLAY_RECOG_INFOS, "displaySettings", CommandRole::kSetting,
         &kDisplayFields, nullptr, ENABLE_TYPE_ON, "displaySettings"},
        // MultiTaskAppHistory GET, PUT
        {COMMAND_ROAD_CMD, VW_CMD_HISTORY_SWITCH, "historySwitch", CommandRole::kSetting, &kSwitchFields,
         nullptr, ENABLE_TYPE_ON, "historySwitches"},
        // MultiTaskAppHistoryRecords DELETE
        {COMMAND_ROAD_CMD, VW_CMD_DELETE_HISTORY_RECORDS, "historyDelete", CommandRole::kDelete,
         &kDeleteFields, nullptr, 0, "historyRecords"},
    };
    return kCommands;
}

const CommandSpec* FindCommand(const char* road, int code) {
    for (const CommandSpec& spec : Commands()) {
        if (spec.code == code && strcmp(spec.road, road) == 0) {
            return &spec;
        }
    }
    return nullptr;
}

const std::vector<const char*>& Roads() {
    static const std::vector<const char*> kRoads = {COMMAND_ROAD_ANALYSIS, COMMAND_ROAD_CMD};
    return kRoads;
}

bool KnownRoad(const char* road) {
    for (const char* known : Roads()) {
        if (strcmp(known, road) == 0) {
            return true;
        }
    }
    return false;
}

std::vector<unsigned char> DefaultRecord(const CommandSpec& spec, uint64_t channelId) {
    std::vector<unsigned char> record(spec.record->recordSize, 0);
    memcpy(record.data(), &channelId, sizeof(channelId));
    for (size_t i = 0; i < spec.record->count; ++i) {
        const FieldSpec& f = spec.record->specs[i];
        if (f.kind == kI32) {
            memcpy(record.data() + f.offset, &spec.defaultFlag, sizeof(spec.defaultFlag));
        }
    }
    return record;
}

}  // namespace control
