// The codec on its hot paths beside hand-written json-c code doing the same work: encoding the
// enable list of 32 tasks to text, and merging a 13-flag body into the display settings through
// ParseCommon. Prints the ratio codec/baseline of each after the runs.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <benchmark/benchmark.h>

#include <vector>

#include "codec_baseline.h"
#include "ratio_reporter.h"
#include "vks_os/access_server/zkapi/inc/zkapi_business_common.h"

namespace {

using Filter = VW_FACE_RECOGNITION_DL_METADATA_FILTER_PARA;

const char kFilterBody[] =
    R"({"matchRate": 1, "snapTime": 0, "deviceName": 1, "faceLibName": 0, "name": 1, "cardId": 0,)"
    R"( "gender": 1, "province": 0, "city": 1, "cardType": 0, "birthday": 1, "blackMatchPic": 0,)"
    R"( "whiteMatchPic": 1})";

_VW_TasksEnableList_S FullTaskList() {
    _VW_TasksEnableList_S list;
    memset(&list, 0, sizeof(list));
    list.taskNum = VW_MAX_TASK_NUM;
    for (uint64_t i = 0; i < VW_MAX_TASK_NUM; ++i) {
        int32_t on = static_cast<int32_t>(i % 2);
        list.taskEnable[i] = _VW_TaskEnable_S{100 + i, on, 1 - on, on, 1, 0, on, 1};
    }
    return list;
}

void EncodeCodec(benchmark::State& state) {
    const _VW_TasksEnableList_S list = FullTaskList();
    for (auto _ : state) {
        char* text = json_encode(list);
        benchmark::DoNotOptimize(text);
        free(text);
    }
}

void EncodeBaseline(benchmark::State& state) {
    const _VW_TasksEnableList_S list = FullTaskList();
    for (auto _ : state) {
        char* text = BaselineEncodeTasks(list);
        benchmark::DoNotOptimize(text);
        free(text);
    }
}

void DecodeCodec(benchmark::State& state) {
    tagHTTP_HEADER_S header;
    memset(&header, 0, sizeof(header));
    tagHTTP_BUF_S content = {nullptr, kFilterBody, nullptr};
    Filter record;
    memset(&record, 0, sizeof(record));
    tagHTTP_CNTENT_INTER_S ctIn = {nullptr, nullptr, nullptr};
    for (auto _ : state) {
        ctIn.preProcOut = &record;
        ctIn.parseOut = nullptr;
        VW_RESULT_TYPE ret = ParseCommon<Filter>(&header, &content, &ctIn);
        benchmark::DoNotOptimize(ret);
        benchmark::DoNotOptimize(record);
    }
}

void DecodeBaseline(benchmark::State& state) {
    Filter record;
    memset(&record, 0, sizeof(record));
    for (auto _ : state) {
        int ret = BaselineDecodeFilter(kFilterBody, &record);
        benchmark::DoNotOptimize(ret);
        benchmark::DoNotOptimize(record);
    }
}

// Both sides must do the same work: byte for byte the same text for the list, the same record from
// the body. A difference is printed with where it starts.
bool SidesAgree() {
    const _VW_TasksEnableList_S list = FullTaskList();
    char* codecText = json_encode(list);
    char* baselineText = BaselineEncodeTasks(list);
    bool encodeAgrees =
        codecText != nullptr && baselineText != nullptr && strcmp(codecText, baselineText) == 0;
    if (!encodeAgrees && codecText != nullptr && baselineText != nullptr) {
        size_t at = 0;
        while (codecText[at] != '\0' && codecText[at] == baselineText[at]) {
            ++at;
        }
        fprintf(stderr,
                "encode texts differ at byte %zu (codec %zu bytes, baseline %zu):\n  codec:    %.60s\n  "
                "baseline: %.60s\n",
                at, strlen(codecText), strlen(baselineText), codecText + at, baselineText + at);
    }
    free(codecText);
    free(baselineText);

    Filter viaCodec;
    memset(&viaCodec, 0, sizeof(viaCodec));
    Filter viaBaseline = viaCodec;
    tagHTTP_HEADER_S header;
    memset(&header, 0, sizeof(header));
    tagHTTP_BUF_S content = {nullptr, kFilterBody, nullptr};
    tagHTTP_CNTENT_INTER_S ctIn = {&viaCodec, nullptr, nullptr};
    bool decodeAgrees = ParseCommon<Filter>(&header, &content, &ctIn) == VW_SUCCESS &&
                        BaselineDecodeFilter(kFilterBody, &viaBaseline) == 0 &&
                        memcmp(&viaCodec, &viaBaseline, sizeof(Filter)) == 0 && viaCodec.whiteMatchPic == 1;
    if (!encodeAgrees || !decodeAgrees) {
        fprintf(stderr,
                "codec_bench: FAILED, codec and baseline do not do the same work: encode %s, decode %s\n",
                encodeAgrees ? "same bytes" : "different bytes",
                decodeAgrees ? "same record" : "different record");
    }
    return encodeAgrees && decodeAgrees;
}

}  // namespace

BENCHMARK(EncodeCodec)->Name("Encode/Codec");
BENCHMARK(EncodeBaseline)->Name("Encode/Baseline");
BENCHMARK(DecodeCodec)->Name("Decode/Codec");
BENCHMARK(DecodeBaseline)->Name("Decode/Baseline");

// The machine is shared: repetitions, interleaved at random, and their medians keep a passing load
// from landing on one side of a ratio. Flags given on the command line come later and win.
int main(int argc, char** argv) {
    const char* defaults[] = {"--benchmark_repetitions=9", "--benchmark_enable_random_interleaving=true",
                              "--benchmark_report_aggregates_only=true"};
    std::vector<char*> args(argv, argv + argc);
    args.insert(args.begin() + 1, const_cast<char**>(defaults), const_cast<char**>(defaults) + 3);
    int count = static_cast<int>(args.size());
    benchmark::Initialize(&count, args.data());
    argc = count;
    argv = args.data();
    if (benchmark::ReportUnrecognizedArguments(argc, argv) || !SidesAgree()) {
        return 1;
    }
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    int pairs = reporter.PrintRatios("Encode") + reporter.PrintRatios("Decode");
    return pairs == 2 ? 0 : 1;
}
