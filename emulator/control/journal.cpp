#include "journal.h"

#include <time.h>

#include <vector>

namespace control {
namespace {

// UTC with milliseconds, "2026-01-31T12:00:00.123Z".
std::string Now() {
    struct timespec ts;
    clock_gettime(CLOCK_REALTIME, &ts);
    struct tm utc;
    gmtime_r(&ts.tv_sec, &utc);
    char text[40];
    size_t n = strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%S", &utc);
    snprintf(text + n, sizeof(text) - n, ".%03ldZ", ts.tv_nsec / 1000000);
    return text;
}

}  // namespace

void Journal::Add(const char* road, int command, json_object* fields) {
    std::lock_guard<std::mutex> lock(mutex_);
    json_object* entry = json_object_new_object();
    json_object_object_add(entry, "seq", json_object_new_uint64(nextSeq_));
    json_object_object_add(entry, "time", json_object_new_string(Now().c_str()));
    json_object_object_add(entry, "road", json_object_new_string(road));
    json_object_object_add(entry, "command", json_object_new_int(command));
    json_object_object_foreach(fields, key, value) {
        json_object_object_add(entry, key, json_object_get(value));
    }
    json_object_put(fields);
    entries_.push_back(Entry{
        nextSeq_++, road, command,
        json_object_to_json_string_ext(entry, JSON_C_TO_STRING_PLAIN | JSON_C_TO_STRING_NOSLASHESCAPE)});
    json_object_put(entry);
    while (entries_.size() > capacity_) {
        entries_.pop_front();
        ++dropped_;
    }
}

std::string Journal::ToJson(const JournalFilter& filter) const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<const Entry*> passed;
    for (const Entry& e : entries_) {
        if (e.seq > filter.since && (filter.road.empty() || filter.road == e.road) &&
            (filter.command == 0 || filter.command == e.command)) {
            passed.push_back(&e);
        }
    }
    size_t first = filter.limit != 0 && passed.size() > filter.limit ? passed.size() - filter.limit : 0;
    std::string out = "{\"capacity\":" + std::to_string(capacity_) +
                      ",\"dropped\":" + std::to_string(dropped_) + ",\"entries\":[";
    for (size_t i = first; i < passed.size(); ++i) {
        out += (i > first ? "," : "") + passed[i]->json;
    }
    return out + "]}";
}

void Journal::Clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    entries_.clear();
}

}  // namespace control
