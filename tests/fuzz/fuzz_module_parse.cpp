// The module's Parse handler of every PUT and DELETE on arbitrary bodies (and, for the DELETE, an
// arbitrary query), each PUT that reads back first with a scripted PreProc record, then its Format.
// Parse either fills parseOut or leaves it empty with a failure; a Format that succeeds wrote a JSON
// object.
#include <json-c/json.h>

#include <cstring>
#include <string>

#include "app/parse_model/multi_task/vksapi_multi_task_module.h"
#include "fuzz_support.h"
#include "vks_multi_task_records.h"

namespace {

using ParseFn = VW_RESULT_TYPE (*)(tagHTTP_HEADER_S*, tagHTTP_BUF_S*, tagHTTP_CNTENT_INTER_S*);
using FormatFn = VW_RESULT_TYPE (*)(tagHTTP_HEADER_S*, VW_RESULT_TYPE, tagHTTP_CNTENT_INTER_S*,
                                    tagHTTP_BUF_S*);

struct Handler {
    ParseFn parse;
    FormatFn format;
    size_t preProcSize;  // 0: Parse builds its record without a PreProc
    bool bodyInQuery;
};

const Handler kHandlers[] = {
    {ParsePutMultiTaskAppDisplayRecogPopUps, FormatPutMultiTaskAppDisplayRecogPopUps, 0, false},
    {ParsePutMultiTaskAppDisplayRecogInfos, FormatPutMultiTaskAppDisplayRecogInfos,
     sizeof(VW_FACE_RECOGNITION_DL_METADATA_FILTER_PARA), false},
    {ParsePutMultiTaskAppHistory, FormatPutMultiTaskAppHistory, sizeof(HistoryRecordSwitch), false},
    {ParseDeleteMultiTaskAppHistoryRecords, FormatDeleteMultiTaskAppHistoryRecords, 0, true},
};

int Append(tagHTTP_BUF_S* self, const char* text, unsigned int length) {
    static_cast<std::string*>(self->pPrivate)->append(text, length);
    return 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) {
        return 0;
    }
    vks_fuzz::QuietLogs();
    const Handler& h = kHandlers[data[0] % (sizeof(kHandlers) / sizeof(kHandlers[0]))];
    std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
    tagHTTP_HEADER_S header{};
    strcpy(header.method, h.bodyInQuery ? "DELETE" : "PUT");
    snprintf(header.szReqUrl, sizeof(header.szReqUrl), "/api/Resource?%s", h.bodyInQuery ? text.c_str() : "");
    tagHTTP_CNTENT_INTER_S ctIn{};
    if (h.preProcSize != 0) {  // what PreProc read back: a record of the service's, bytes 0xA5
        ctIn.preProcOut = malloc(h.preProcSize);
        memset(ctIn.preProcOut, 0xA5, h.preProcSize);
    }
    tagHTTP_BUF_S content{nullptr, h.bodyInQuery ? "" : text.c_str(), nullptr};
    VW_RESULT_TYPE result = h.parse(&header, &content, &ctIn);
    FUZZ_CHECK((result == VW_SUCCESS) == (ctIn.parseOut != nullptr));

    std::string body;
    tagHTTP_BUF_S out{Append, nullptr, &body};
    if (h.format(&header, result, &ctIn, &out) == VW_SUCCESS) {  // otherwise the host writes the envelope
        json_object* reply = json_tokener_parse(body.c_str());
        FUZZ_CHECK(reply != nullptr && json_object_is_type(reply, json_type_object));
        json_object_put(reply);
    }
    free(ctIn.preProcOut);
    free(ctIn.parseOut);
    free(ctIn.runOut);
    return 0;
}
