#include "result_file.h"

#include <errno.h>
#include <fcntl.h>
#include <json-c/json.h>
#include <string.h>
#include <sys/random.h>
#include <unistd.h>

namespace cmdchan {
namespace {

json_object* RowJson(const HistoryRow& row) {
    json_object* obj = json_object_new_object();
    json_object_object_add(obj, "RecordId", json_object_new_int64(row.recordId));
    json_object_object_add(obj, "SnapTime", json_object_new_string(row.snapTime.c_str()));
    json_object_object_add(obj, "ChannelId", json_object_new_uint64(row.channelId));
    json_object_object_add(obj, "DatabaseType", json_object_new_int64(row.databaseType));
    json_object_object_add(obj, "FirstAttri", json_object_new_int64(row.firstAttri));
    json_object_object_add(obj, "SecondAttri", json_object_new_int64(row.secondAttri));
    json_object_object_add(obj, "LibId", json_object_new_uint64(row.libId));
    json_object_object_add(obj, "Name", json_object_new_string(row.name.c_str()));
    json_object_object_add(obj, "MatchRate", json_object_new_int64(row.matchRate));
    return obj;
}

}  // namespace

std::string HistoryResultJson(long long total, uint32_t startIndex, const std::vector<HistoryRow>& rows) {
    json_object* root = json_object_new_object();
    json_object_object_add(root, "TotalNum", json_object_new_int64(total));
    json_object_object_add(root, "StartIndex", json_object_new_int64(startIndex));
    json_object_object_add(root, "ReturnNum", json_object_new_int64(static_cast<int64_t>(rows.size())));
    json_object* records = json_object_new_array();
    for (const HistoryRow& row : rows) {
        json_object_array_add(records, RowJson(row));
    }
    json_object_object_add(root, "Records", records);
    std::string text = json_object_to_json_string_ext(root, JSON_C_TO_STRING_PLAIN);
    json_object_put(root);
    return text;
}

std::string ResultName() {
    unsigned char bytes[16] = {};
    for (size_t got = 0; got < sizeof(bytes);) {
        ssize_t n = getrandom(bytes + got, sizeof(bytes) - got, 0);
        if (n < 0 && errno != EINTR) {
            return "";  // no randomness (a sandbox without the call): a name that could be guessed is worse
        }
        got += n > 0 ? static_cast<size_t>(n) : 0;
    }
    std::string name = "history-";
    for (unsigned char b : bytes) {
        name += "0123456789abcdef"[b >> 4];
        name += "0123456789abcdef"[b & 15];
    }
    return name + ".json";
}

bool WriteResultFile(int dirFd, const std::string& dir, const std::string& text, std::string* path,
                     std::string* error) {
    // A name that is taken was planted or is astronomically unlucky: either way never reuse it.
    std::string name;
    int fd = -1;
    for (int tries = 0; fd < 0 && tries < 4; ++tries) {
        name = ResultName();
        if (name.empty()) {
            *error = std::string("no random result name: getrandom: ") + strerror(errno);
            return false;
        }
        fd = openat(dirFd, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd < 0 && errno != EEXIST) {
            break;
        }
    }
    *path = dir + "/" + name;
    if (fd < 0) {
        *error = "create " + *path + ": " + strerror(errno);
        return false;
    }
    bool ok = true;
    for (size_t done = 0; ok && done < text.size();) {
        ssize_t n = write(fd, text.data() + done, text.size() - done);
        ok = n > 0 || (n < 0 && errno == EINTR);
        done += n > 0 ? static_cast<size_t>(n) : 0;
    }
    if (close(fd) != 0 || !ok) {
        *error = "write " + *path + ": " + strerror(errno);
        unlinkat(dirFd, name.c_str(), 0);
        return false;
    }
    return true;
}

}  // namespace cmdchan
