// The control document states the emulator's own tables: every command enum lists exactly the
// command table's codes (the journal's entries are any number: it records unknown ones too), every road enum
// its roads, and every state kind's row schema (types, ranges, patterns, required keys) is the one the row
// rules generate. The demo scenario file loads like any scenario, and a scenario with one bad row or fault
// changes nothing.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <set>
#include <string>

#include "command_table.h"
#include "fault_json.h"
#include "scenario.h"
#include "state_admin.h"

namespace {

using Json = std::unique_ptr<json_object, decltype(&json_object_put)>;

Json Own(json_object* value) {
    return Json(value, &json_object_put);
}

json_object* At(json_object* node, std::initializer_list<const char*> path) {
    for (const char* key : path) {
        json_object* next = nullptr;
        if (json_object_is_type(node, json_type_array)) {
            next = json_object_array_get_idx(node, static_cast<size_t>(atoi(key)));
        } else if (!json_object_object_get_ex(node, key, &next)) {
            ADD_FAILURE() << "no " << key << " in the document";
            return nullptr;
        }
        node = next;
    }
    return node;
}

class ContractTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_NE(nullptr, doc.get()) << VKS_CONTROL_DOC; }

    // A "$ref" followed to its schema.
    json_object* Resolve(json_object* node) {
        json_object* ref = nullptr;
        while (json_object_object_get_ex(node, "$ref", &ref)) {
            std::string name = json_object_get_string(ref);
            node = At(doc.get(), {"components", "schemas", name.substr(name.rfind('/') + 1).c_str()});
        }
        return node;
    }

    // A schema with what only explains it (descriptions, examples) left out, nested references kept.
    Json Rules(json_object* schema) {
        Json copy = Own(nullptr);
        json_object* out = nullptr;
        json_object_deep_copy(Resolve(schema), &out, nullptr);
        copy.reset(out);
        json_object_object_del(out, "description");
        json_object_object_del(out, "example");
        json_object_object_foreach(At(out, {"properties"}), key, property) {
            (void)key;
            json_object_object_del(property, "description");
            json_object_object_del(property, "examples");
        }
        return copy;
    }

    std::set<std::string> Enum(json_object* node) {
        std::set<std::string> values;
        json_object* list = At(node, {"enum"});
        for (size_t i = 0; list != nullptr && i < json_object_array_length(list); ++i) {
            values.insert(json_object_get_string(json_object_array_get_idx(list, i)));
        }
        return values;
    }

    Json doc = Own(json_object_from_file(VKS_CONTROL_DOC));
};

TEST_F(ContractTest, CommandAndRoadEnumsAreTheCommandTable) {
    std::set<std::string> codes;
    std::set<std::string> stateKinds;
    for (const control::CommandSpec& spec : control::Commands()) {
        codes.insert(std::to_string(spec.code));
        stateKinds.insert(spec.stateKind);
    }
    std::set<std::string> roads(control::Roads().begin(), control::Roads().end());
    json_object* schemas = At(doc.get(), {"components", "schemas"});
    json_object* journalParams = At(doc.get(), {"paths", "/control/journal", "get", "parameters"});
    std::set<std::string> journalCodes = Enum(At(journalParams, {"1", "schema"}));
    EXPECT_EQ(1u, journalCodes.erase("0"));  // 0: every command
    struct {
        const char* where;
        std::set<std::string> listed;
        const std::set<std::string>& expected;
    } cases[] = {
        {"Fault.command", Enum(At(schemas, {"Fault", "properties", "command", "oneOf", "0"})), codes},
        {"FaultBody.command", Enum(At(schemas, {"FaultBody", "properties", "command", "oneOf", "0"})), codes},
        {"Command.command", Enum(At(schemas, {"Command", "properties", "command"})), codes},
        {"journal ?command", journalCodes, codes},
        {"Fault.road", Enum(At(schemas, {"Fault", "properties", "road"})), roads},
        {"FaultBody.road", Enum(At(schemas, {"FaultBody", "properties", "road"})), roads},
        {"JournalEntry.road", Enum(At(schemas, {"JournalEntry", "properties", "road"})), roads},
        {"Command.road", Enum(At(schemas, {"Command", "properties", "road"})), roads},
        {"journal ?road", Enum(At(journalParams, {"0", "schema"})), roads},
        {"faults {road}",
         Enum(At(doc.get(),
                 {"paths", "/control/faults/{road}/{command}", "put", "parameters", "0", "schema"})),
         roads},
        {"Command.stateKind", Enum(At(schemas, {"Command", "properties", "stateKind"})), stateKinds},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.expected, c.listed) << c.where;
    }
}

TEST_F(ContractTest, EveryKindsRowSchemaIsTheOneItsRulesGenerate) {
    for (const char* const* kind = control::StateAdmin::kKinds; *kind != nullptr; ++kind) {
        std::string path = std::string("/control/state/") + *kind;
        json_object* body = At(doc.get(), {"paths", path.c_str(), "put", "requestBody", "content",
                                           "application/json", "schema"});
        Json documented = Rules(At(Resolve(body), {"items"}));
        Json generated = Own(control::StateAdmin::RowSchema(*kind));
        EXPECT_TRUE(json_object_equal(documented.get(), generated.get()))
            << *kind << "\n document: " << json_object_to_json_string(documented.get())
            << "\n rules:    " << json_object_to_json_string(generated.get());
        // What a GET answers has the same keys and ranges (a stored record always has its RecordId).
        json_object* read = At(doc.get(), {"paths", path.c_str(), "get", "responses", "200", "content",
                                           "application/json", "schema"});
        Json answered = Rules(At(Resolve(read), {"items"}));
        EXPECT_TRUE(
            json_object_equal(At(answered.get(), {"properties"}), At(generated.get(), {"properties"})))
            << *kind;
    }
}

bool ReadWhole(const char* path, std::string* text) {
    FILE* file = fopen(path, "r");
    if (file == nullptr) {
        return false;
    }
    char buffer[4096];
    for (size_t n; (n = fread(buffer, 1, sizeof(buffer), file)) > 0;) {
        text->append(buffer, n);
    }
    fclose(file);
    return true;
}

class ScenarioFileTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = std::string(VKS_SCRATCH_DIR) + "/scenario-XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(&pattern[0]));
        dir = pattern;
        tables = {&analysis, &cmd};
    }
    void TearDown() override { std::filesystem::remove_all(dir); }

    std::string dir;
    faults::FaultTable analysis;
    faults::FaultTable cmd;
    control::FaultTables tables{};
};

TEST_F(ScenarioFileTest, TheDemoFileLoadsAndExportsAsWritten) {
    std::string error;
    ASSERT_TRUE(control::LoadScenarioFile(VKS_DEMO_SCENARIO, dir + "/vks.db", tables, &error)) << error;
    std::unique_ptr<control::StateAdmin> state = control::StateAdmin::Open(dir + "/vks.db", &error);
    ASSERT_NE(nullptr, state) << error;
    Json exported = Own(control::ExportScenario(*state, tables));
    Json file = Own(json_object_from_file(VKS_DEMO_SCENARIO));
    EXPECT_TRUE(json_object_equal(exported.get(), file.get())) << json_object_to_json_string(exported.get());
}

TEST_F(ScenarioFileTest, OneBadRowOrFaultChangesNothing) {
    std::string error;
    std::unique_ptr<control::StateAdmin> state = control::StateAdmin::Open(dir + "/vks.db", &error);
    ASSERT_NE(nullptr, state) << error;
    cmd.Set(FAULTS_ALL_COMMANDS, faults::Fault{});
    Json before = Own(control::ExportScenario(*state, tables));
    struct {
        const char* patch;  // JSON text replacing one part of the demo
        const char* key;
        const char* error;
    } cases[] = {
        {"[{\"slot\": 0, \"available\": -1, \"capacity\": 1}]", "counts",
         "counts row 0: available: -1 is not"},
        {"[{\"road\": \"command-channel\", \"command\": 1201}]", "faults", "faults row 0: road and command"},
        {"[{\"road\": \"analysis\", \"command\": 229, \"delayMs\": -5}]", "faults", "bad value for delayMs"},
        {"{}", "state", "counts: required, missing"},
    };
    for (const auto& c : cases) {
        Json scenario = Own(json_object_from_file(VKS_DEMO_SCENARIO));
        json_object* target = std::string(c.key) == "counts" ? At(scenario.get(), {"state"}) : scenario.get();
        json_object_object_add(target, c.key, json_tokener_parse(c.patch));
        EXPECT_FALSE(control::ImportScenario(*state, tables, scenario.get(), &error)) << c.patch;
        EXPECT_NE(std::string::npos, error.find(c.error)) << error;
        Json after = Own(control::ExportScenario(*state, tables));
        EXPECT_TRUE(json_object_equal(before.get(), after.get())) << c.patch;
    }
}

// A scenario file is read as strictly as a body the control port takes: json-c alone would take text
// after the document and clamp an integer beyond 64 bits to another number.
TEST_F(ScenarioFileTest, AFileOnlyJsonCWouldTakeIsRefusedWithItsReason) {
    std::string demo;
    ASSERT_TRUE(ReadWhole(VKS_DEMO_SCENARIO, &demo));
    std::string channel = "\"historySwitches\": []";
    ASSERT_NE(std::string::npos, demo.find(channel));
    struct {
        std::string text;
        const char* error;
    } cases[] = {
        {demo + " x", "is not JSON"},
        {std::string(demo).replace(
             demo.find(channel), channel.size(),
             "\"historySwitches\": [{\"channelId\": 18446744073709551616, \"enableRecord\": 1}]"),
         "has an integer that does not fit 64 bits"},
    };
    for (const auto& c : cases) {
        std::string path = dir + "/bad.json";
        FILE* file = fopen(path.c_str(), "w");
        ASSERT_NE(nullptr, file);
        fputs(c.text.c_str(), file);
        fclose(file);
        std::string error;
        EXPECT_FALSE(control::LoadScenarioFile(path, dir + "/vks.db", tables, &error));
        EXPECT_NE(std::string::npos, error.find("scenario " + path + " " + c.error)) << error;
    }
}

}  // namespace
