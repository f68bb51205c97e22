// SPDX-License-Identifier: Apache-2.0
// The JSON mapping against hand-written json-c code, both directions, for the largest record (a
// full frame OSD: 37 items, every text at its longest) and the two capability records.
//
// Text: record to response text (tree, print, copy) and request text to record (the host's
// parser, then the reading of the tree). Tree: the mapping alone, without printing or parsing.
// Before timing, each pair is checked to give the same text and the same record bytes.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "hand_written_json.h"
#include "orbapi_itgt_records.h"

namespace {

// Letters from base + shift on, as long as the field holds.
template <std::size_t N>
void FillText(char (&text)[N], char base, unsigned int shift) {
    for (std::size_t i = 0; i + 1 < N; ++i) {
        text[i] = static_cast<char>(base + (shift + i) % 26);
    }
    text[N - 1] = '\0';
}

void Fill(_VW_PIC_OSD_PARA_S &osd) {
    memset(&osd, 0, sizeof(osd));
    osd.channelId = 3;
    osd.overlayType = VW_OVERLAY_PIC_TYPE_E{1};
    _PIC_OSD_INFO_S &info = osd.picOSDInfo;
    info.picOSDNum = PIC_OSD_ITEM_CAPACITY;
    for (unsigned int i = 0; i < PIC_OSD_ITEM_CAPACITY; ++i) {
        info.picOSDType[i] = VW_PIC_OSD_ITEM_E{i + 1};
        info.spaceNum[i] = 1000000007ULL * i;
        info.warpNum[i] = i % 3;
        info.picOsdDetail[i].prefixEnable = static_cast<int>(i % 2);
        FillText(info.picOsdDetail[i].prefixContent, 'A', i);
    }
    info.osdLocation = VW_OSD_LOCATION_E{2};
    info.fontSize = VW_OSD_FONT_SIZE_E{3};
    info.fontSizeExt = FONT_SIZE_EXT_E{4};
    info.fgColor = 0xFFFFFF;
    info.fgAlpha = 200;
    info.bgColor = 0x102030;
    info.bgAlpha = 50;
    info.securityCodeInfo.securityCodePos = VW_SECURITY_CODE_POS_E{1};
    osd.timeOSD = {1, VW_OSD_YMD_TYPE_E{2}};
    unsigned int shift = 0;
    for (_CUSTOM_OSD_PARA_S *text :
         {&osd.roadIdOSD, &osd.devIdOSD, &osd.devIdOSD1, &osd.dirIdOSD, &osd.dirOSD, &osd.customOSD,
          &osd.locateOSD, &osd.monitorOSD, &osd.laneOSD, &osd.laneDirOSD}) {
        FillText(text->osdContent, 'a', shift++);
    }
    osd.dirOSDParaEn = 1;
    osd.enableLiveOSD = 1;
}

// One flag in three set, so that both values appear.
template <typename T>
void Fill(T &record) {
    auto *bytes = reinterpret_cast<unsigned char *>(&record);
    for (std::size_t i = 0; i < sizeof(T); ++i) {
        bytes[i] = (i * 7 + 1) % 3 == 0;
    }
}

// The sample of each record kind, made once.
template <typename T>
const T &Sample() {
    static const T *record = [] {
        auto *filled = new T;
        Fill(*filled);
        return filled;
    }();
    return *record;
}

using OsdAbility = _tagITGT_OSD_ABILITY_REST_API_S;

template <typename T>
int SchemaDecode(json_object *root, T &record) {
    return jsonDecoder<T>::decode(root, nullptr, record, NullAlloc{}, NullDealloc{},
                                  JSON_FORMAT_DEFAULT);
}

template <typename T>
int HandDecodeText(const char *text, T &record) {
    json_object *root = cJSON_Parse(text);
    int result = root == nullptr ? -1 : hand_written::Decode(root, record);
    cJSON_Delete(root);
    return result;
}

// Both ways give the same text, and decoding that text into a zeroed record gives the sample's
// bytes both ways; a benchmark of a pair that differs would compare different work.
template <typename T>
bool SameResults(const char *name) {
    const T &sample = Sample<T>();
    std::unique_ptr<char, decltype(&free)> ours(json_encode(sample), free);
    std::unique_ptr<char, decltype(&free)> hand(hand_written::Print(hand_written::Tree(sample)),
                                                free);
    if (ours == nullptr || hand == nullptr || strcmp(ours.get(), hand.get()) != 0) {
        fprintf(stderr, "%s: the two encoders give different texts\n", name);
        return false;
    }
    auto decodedOurs = std::make_unique<T>(), decodedHand = std::make_unique<T>();
    memset(decodedOurs.get(), 0, sizeof(T));
    memset(decodedHand.get(), 0, sizeof(T));
    if (json_decode(ours.get(), nullptr, *decodedOurs) != 0 ||
        HandDecodeText(ours.get(), *decodedHand) != 0 ||
        memcmp(decodedOurs.get(), decodedHand.get(), sizeof(T)) != 0 ||
        memcmp(decodedOurs.get(), &sample, sizeof(T)) != 0) {
        fprintf(stderr, "%s: the two decoders give different records\n", name);
        return false;
    }
    return true;
}

template <typename T>
void EncodeTextSchema(benchmark::State &state) {
    const T &sample = Sample<T>();
    for (auto _ : state) {
        char *text = json_encode(sample);
        benchmark::DoNotOptimize(text);
        free(text);
    }
}

template <typename T>
void EncodeTextHand(benchmark::State &state) {
    const T &sample = Sample<T>();
    for (auto _ : state) {
        char *text = hand_written::Print(hand_written::Tree(sample));
        benchmark::DoNotOptimize(text);
        free(text);
    }
}

template <typename T>
void DecodeTextSchema(benchmark::State &state) {
    std::unique_ptr<char, decltype(&free)> text(json_encode(Sample<T>()), free);
    auto record = std::make_unique<T>();
    for (auto _ : state) {
        benchmark::DoNotOptimize(json_decode(text.get(), nullptr, *record));
        benchmark::ClobberMemory();
    }
}

template <typename T>
void DecodeTextHand(benchmark::State &state) {
    std::unique_ptr<char, decltype(&free)> text(json_encode(Sample<T>()), free);
    auto record = std::make_unique<T>();
    for (auto _ : state) {
        benchmark::DoNotOptimize(HandDecodeText(text.get(), *record));
        benchmark::ClobberMemory();
    }
}

template <typename T>
void EncodeTreeSchema(benchmark::State &state) {
    const T &sample = Sample<T>();
    for (auto _ : state) {
        json_object *tree = jsonEncoder<T>::encode_nulldata(sample, nullptr);
        benchmark::DoNotOptimize(tree);
        json_object_put(tree);
    }
}

template <typename T>
void EncodeTreeHand(benchmark::State &state) {
    const T &sample = Sample<T>();
    for (auto _ : state) {
        json_object *tree = hand_written::Tree(sample);
        benchmark::DoNotOptimize(tree);
        json_object_put(tree);
    }
}

template <typename T>
void DecodeTreeSchema(benchmark::State &state) {
    std::unique_ptr<char, decltype(&free)> text(json_encode(Sample<T>()), free);
    json_object *root = cJSON_Parse(text.get());
    auto record = std::make_unique<T>();
    for (auto _ : state) {
        benchmark::DoNotOptimize(SchemaDecode(root, *record));
        benchmark::ClobberMemory();
    }
    cJSON_Delete(root);
}

template <typename T>
void DecodeTreeHand(benchmark::State &state) {
    std::unique_ptr<char, decltype(&free)> text(json_encode(Sample<T>()), free);
    json_object *root = cJSON_Parse(text.get());
    auto record = std::make_unique<T>();
    for (auto _ : state) {
        benchmark::DoNotOptimize(hand_written::Decode(root, *record));
        benchmark::ClobberMemory();
    }
    cJSON_Delete(root);
}

// Registers the four pairs of a record, named "<direction>/<record>/<schema|hand>" so that each
// pair sorts together. A fixed iteration count (0: Google Benchmark's choice) makes instruction
// counts under callgrind comparable.
template <typename T>
void RegisterRecord(const std::string &record, long iterations) {
    using Function = void (*)(benchmark::State &);
    const std::pair<const char *, Function> benchmarks[] = {
        {"EncodeText/%s/schema", EncodeTextSchema<T>}, {"EncodeText/%s/hand", EncodeTextHand<T>},
        {"DecodeText/%s/schema", DecodeTextSchema<T>}, {"DecodeText/%s/hand", DecodeTextHand<T>},
        {"EncodeTree/%s/schema", EncodeTreeSchema<T>}, {"EncodeTree/%s/hand", EncodeTreeHand<T>},
        {"DecodeTree/%s/schema", DecodeTreeSchema<T>}, {"DecodeTree/%s/hand", DecodeTreeHand<T>}};
    for (const auto &[format, function] : benchmarks) {
        char name[96];
        snprintf(name, sizeof(name), format, record.c_str());
        benchmark::internal::Benchmark *registered = benchmark::RegisterBenchmark(name, function);
        if (iterations > 0) {
            registered->Iterations(iterations);
        }
    }
}

}  // namespace

int main(int argc, char **argv) {
    if (!SameResults<_VW_PIC_OSD_PARA_S>("frame_osd") ||
        !SameResults<ITGT_ABILITY_REST_API>("capability") ||
        !SameResults<OsdAbility>("osd_capability")) {
        return 1;
    }
    benchmark::Initialize(&argc, argv);
    // Our options, after Google Benchmark has taken its own: --iterations=N, and
    // --fixed-hash, which replaces json-c's randomly seeded key hash with its unseeded one so that
    // instruction counts repeat from run to run.
    long iterations = 0;
    for (int i = 1; i < argc; ++i) {
        if (strncmp(argv[i], "--iterations=", 13) == 0) {
            iterations = strtol(argv[i] + 13, nullptr, 10);
        } else if (strcmp(argv[i], "--fixed-hash") == 0) {
            json_global_set_string_hash(JSON_C_STR_HASH_PERLLIKE);
        } else {
            continue;
        }
        argv[i--] = argv[--argc];
    }
    RegisterRecord<_VW_PIC_OSD_PARA_S>("frame_osd", iterations);
    RegisterRecord<ITGT_ABILITY_REST_API>("capability", iterations);
    RegisterRecord<OsdAbility>("osd_capability", iterations);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
