// SPDX-License-Identifier: Apache-2.0
// The baseline of the mapping benchmark: the module's records written and read with plain json-c
// calls, as one would code them by hand for each record. They build and read the same trees as
// the schemas: same keys in the same order, same value types, same checks on decoding. They keep
// the platform's copy rules too: every text copy through strncpy_s, the response text zeroed with
// memset_s before it is filled.
#ifndef BENCH_HAND_WRITTEN_JSON_H
#define BENCH_HAND_WRITTEN_JSON_H

#include <json-c/json.h>

#include <safe_mem_lib.h>
#include <safe_str_lib.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "orbapi_itgt_records.h"

namespace hand_written {

// ---------------------------------------------------------------------------------------------
// Encoding

template <std::size_t N>
json_object *Text(const char (&text)[N]) {
    return json_object_new_string_len(text, static_cast<int>(strnlen(text, N)));
}

inline json_object *OsdText(const _CUSTOM_OSD_PARA_S &osd) {
    json_object *object = json_object_new_object();
    json_object_object_add(object, "osdContent", Text(osd.osdContent));
    return object;
}

inline json_object *PicOsdInfo(const _PIC_OSD_INFO_S &info) {
    json_object *object = json_object_new_object();
    unsigned int count = info.picOSDNum;
    if (count > PIC_OSD_ITEM_CAPACITY) {
        json_object_put(object);
        return nullptr;
    }
    json_object *types = nullptr, *spaces = nullptr, *warps = nullptr, *details = nullptr;
    if (count != 0) {
        types = json_object_new_array();
        spaces = json_object_new_array();
        warps = json_object_new_array();
        details = json_object_new_array();
        for (unsigned int i = 0; i < count; ++i) {
            json_object_array_add(types, json_object_new_int(static_cast<int>(info.picOSDType[i])));
            json_object_array_add(spaces, json_object_new_uint64(info.spaceNum[i]));
            json_object_array_add(warps, json_object_new_uint64(info.warpNum[i]));
            json_object *detail = json_object_new_object();
            json_object_object_add(detail, "prefixEnable",
                                   json_object_new_int(info.picOsdDetail[i].prefixEnable));
            json_object_object_add(detail, "prefixContent",
                                   Text(info.picOsdDetail[i].prefixContent));
            json_object_array_add(details, detail);
        }
        json_object_object_add(object, "picOSDType", types);
    }
    json_object_object_add(object, "osdLocation", json_object_new_int(info.osdLocation));
    json_object_object_add(object, "fontSize", json_object_new_int(info.fontSize));
    json_object_object_add(object, "fontSizeExt", json_object_new_int(info.fontSizeExt));
    json_object_object_add(object, "fgColor", json_object_new_uint64(info.fgColor));
    json_object_object_add(object, "fgAlpha", json_object_new_int(info.fgAlpha));
    json_object_object_add(object, "bgColor", json_object_new_uint64(info.bgColor));
    json_object_object_add(object, "bgAlpha", json_object_new_int(info.bgAlpha));
    if (count != 0) {
        json_object_object_add(object, "spaceNum", spaces);
        json_object_object_add(object, "warpNum", warps);
        json_object_object_add(object, "picOsdDetail", details);
    }
    json_object_object_add(object, "picOSDNum", json_object_new_int64(info.picOSDNum));
    json_object *security = json_object_new_object();
    json_object_object_add(security, "securityCodePos",
                           json_object_new_int(info.securityCodeInfo.securityCodePos));
    json_object_object_add(object, "securityCodeInfo", security);
    return object;
}

inline json_object *Tree(const _VW_PIC_OSD_PARA_S &osd) {
    json_object *object = json_object_new_object();
    json_object_object_add(object, "channelId", json_object_new_uint64(osd.channelId));
    json_object_object_add(object, "overlayType", json_object_new_int(osd.overlayType));
    json_object_object_add(object, "picOSDInfo", PicOsdInfo(osd.picOSDInfo));
    json_object *time = json_object_new_object();
    json_object_object_add(time, "toMs", json_object_new_int(osd.timeOSD.toMs));
    json_object_object_add(time, "type", json_object_new_int(osd.timeOSD.type));
    json_object_object_add(object, "timeOSD", time);
    json_object_object_add(object, "roadIdOSD", OsdText(osd.roadIdOSD));
    json_object_object_add(object, "devIdOSD", OsdText(osd.devIdOSD));
    json_object_object_add(object, "devIdOSD1", OsdText(osd.devIdOSD1));
    json_object_object_add(object, "dirIdOSD", OsdText(osd.dirIdOSD));
    json_object_object_add(object, "dirOSD", OsdText(osd.dirOSD));
    json_object_object_add(object, "customOSD", OsdText(osd.customOSD));
    json_object_object_add(object, "locateOSD", OsdText(osd.locateOSD));
    json_object_object_add(object, "monitorOSD", OsdText(osd.monitorOSD));
    json_object_object_add(object, "laneOSD", OsdText(osd.laneOSD));
    json_object_object_add(object, "laneDirOSD", OsdText(osd.laneDirOSD));
    json_object_object_add(object, "dirOSDParaEn", json_object_new_int(osd.dirOSDParaEn));
    json_object_object_add(object, "enableLiveOSD", json_object_new_int(osd.enableLiveOSD));
    return object;
}

// Flag records: one key per flag byte, in record order.
constexpr const char *kAbilityKeys[] = {"audio",
                                        "motionDetection",
                                        "Occlustion",
                                        "videoAnalysis",
                                        "autoTracking",
                                        "scensechange",
                                        "scenseAdapter",
                                        "outofFocus",
                                        "crowdAnalysis",
                                        "videoDiagnosis",
                                        "complexBehavior",
                                        "faceDetection",
                                        "faceRecog",
                                        "faceAttr",
                                        "vhdClassify",
                                        "bodyAttr",
                                        "nonmotorAttr",
                                        "vhdfaceMix",
                                        "humanCount",
                                        "heatMap",
                                        "crowdDensity",
                                        "queueDetect",
                                        "faceRecMMC",
                                        "onlineLearning",
                                        "imgQualEval",
                                        "omni",
                                        "vlpr",
                                        "vlprQfree",
                                        "trafficCampus",
                                        "parkingDetection",
                                        "trafficStatistics",
                                        "its",
                                        "itsEpolice",
                                        "illegalball",
                                        "trafficEvent",
                                        "itsSixinone",
                                        "itsPassage",
                                        "itsPedRunRed"};
static_assert(sizeof(kAbilityKeys) / sizeof(kAbilityKeys[0]) == sizeof(ITGT_ABILITY_REST_API));

constexpr const char *kOsdItemKeys[] = {"TimeOSD",
                                        "PlateIdOSD",
                                        "VehicleTypeOSD",
                                        "LaneIdOSD",
                                        "PlateColorOSD",
                                        "VehicleColorOSD",
                                        "RoadIdOSD",
                                        "DevIdOSD",
                                        "DirIdOSD",
                                        "DirOSD",
                                        "CustomOSD",
                                        "SecurityCodeOSD",
                                        "Per_Brand_Type_OSD",
                                        "Sub_Brand_Type_OSD",
                                        "Year_Brand_Type_OSD",
                                        "LocateDescOSD",
                                        "MonitorInfoOSD",
                                        "BrandInfoOSD",
                                        "SpeedOSD",
                                        "LaneDescOSD",
                                        "PicNumOSD",
                                        "IllegalNumOSD",
                                        "IllegalDescOSD",
                                        "SpeedLimitOSD",
                                        "IllegalSpeedOSD",
                                        "LaneDirDescOSD",
                                        "VehicleLenOSD",
                                        "RedLightStartOSD",
                                        "RedLightEndOSD",
                                        "RedLightPeriodOSD",
                                        "SnapTrigTypeOSD",
                                        "VehicleMFRTypeOSD",
                                        "RadarDirDescOsd",
                                        "VehicleDirOSD",
                                        "VehicleTypeExtOSD",
                                        "ShelterPlateOSD"};
static_assert(sizeof(kOsdItemKeys) / sizeof(kOsdItemKeys[0]) * sizeof(_tagPIC_OSD_TYPE) ==
              sizeof(_tagPIC_OSD_ABILITY));
constexpr const char *kPictureKeys[] = {"original", "synthesis", "feature"};
constexpr const char *kBusinessKeys[] = {"TrafficDome", "Vlpr", "Vhd", "Face"};

// An object of flags from consecutive bytes, one per key.
template <std::size_t N>
json_object *Flags(const unsigned char *flags, const char *const (&keys)[N]) {
    json_object *object = json_object_new_object();
    for (std::size_t i = 0; i < N; ++i) {
        json_object_object_add(object, keys[i], json_object_new_boolean(flags[i] != 0));
    }
    return object;
}

inline json_object *Tree(const ITGT_ABILITY_REST_API &ability) {
    return Flags(reinterpret_cast<const unsigned char *>(&ability), kAbilityKeys);
}

inline json_object *Tree(const _tagITGT_OSD_ABILITY_REST_API_S &ability) {
    const auto *bytes = reinterpret_cast<const unsigned char *>(&ability);
    json_object *object = json_object_new_object();
    for (const char *business : kBusinessKeys) {
        json_object *items = json_object_new_object();
        for (const char *item : kOsdItemKeys) {
            json_object_object_add(items, item, Flags(bytes, kPictureKeys));
            bytes += sizeof(_tagPIC_OSD_TYPE);
        }
        json_object_object_add(object, business, items);
    }
    return object;
}

// The response text of a tree, in a malloc'd copy; the tree is released.
inline char *Print(json_object *tree) {
    const char *printed = json_object_to_json_string_ext(
        tree, JSON_C_TO_STRING_PRETTY | JSON_C_TO_STRING_SPACED | JSON_C_TO_STRING_NOSLASHESCAPE);
    char *text = nullptr;
    if (printed != nullptr) {
        std::size_t size = strlen(printed) + 1;
        text = static_cast<char *>(malloc(size));
        if (text != nullptr &&
            (memset_s(text, size, 0, size) != 0 || strncpy_s(text, size, printed, size - 1) != 0)) {
            free(text);
            text = nullptr;
        }
    }
    json_object_put(tree);
    return text;
}

// ---------------------------------------------------------------------------------------------
// Decoding: present members replace the record's values; a value of the wrong type, an
// over-long text or too many items fails with -1.

inline json_object *Get(json_object *object, const char *key) {
    json_object *value = nullptr;
    json_object_object_get_ex(object, key, &value);
    return value;
}

inline bool IsNumber(json_object *value) {
    json_type type = json_object_get_type(value);
    return type == json_type_int || type == json_type_double || type == json_type_boolean;
}

// A signed 32-bit or enumeration member.
template <typename M>
int Number(json_object *object, const char *key, M &member) {
    json_object *value = Get(object, key);
    if (value == nullptr) {
        return 0;
    }
    if (!IsNumber(value)) {
        return -1;
    }
    member = static_cast<M>(json_object_get_int(value));
    return 0;
}

inline int Number64(json_object *object, const char *key, unsigned long long &member) {
    json_object *value = Get(object, key);
    if (value == nullptr) {
        return 0;
    }
    if (!IsNumber(value)) {
        return -1;
    }
    member = json_object_get_uint64(value);
    return 0;
}

template <std::size_t N>
int TextValue(json_object *value, char (&text)[N]) {
    int length = json_object_get_string_len(value);
    if (!json_object_is_type(value, json_type_string) || length > static_cast<int>(N - 1)) {
        return -1;
    }
    return strncpy_s(text, N, json_object_get_string(value), static_cast<rsize_t>(length));
}

inline int OsdText(json_object *object, const char *key, _CUSTOM_OSD_PARA_S &osd) {
    json_object *content = Get(Get(object, key), "osdContent");
    return content == nullptr ? 0 : TextValue(content, osd.osdContent);
}

// An array of numbers sets the shared item count; false when it cannot.
inline int Items(json_object *object, const char *key, unsigned int &count, json_object **array) {
    *array = Get(object, key);
    if (*array == nullptr) {
        return 0;
    }
    if (!json_object_is_type(*array, json_type_array)) {
        return -1;
    }
    count = static_cast<unsigned int>(json_object_array_length(*array));
    return count > PIC_OSD_ITEM_CAPACITY ? -1 : 1;
}

template <typename E>
int NumberItems(json_object *object, const char *key, unsigned int &count, E *elements) {
    json_object *array;
    int found = Items(object, key, count, &array);
    for (unsigned int i = 0; found == 1 && i < count; ++i) {
        json_object *value = json_object_array_get_idx(array, i);
        if (!IsNumber(value)) {
            return -1;
        }
        if constexpr (sizeof(E) == 8) {
            elements[i] = json_object_get_uint64(value);
        } else {
            elements[i] = static_cast<E>(json_object_get_int64(value));
        }
    }
    return found < 0 ? -1 : 0;
}

inline int PicOsdInfo(json_object *object, _PIC_OSD_INFO_S &info) {
    if (NumberItems(object, "picOSDType", info.picOSDNum, info.picOSDType) != 0 ||
        Number(object, "osdLocation", info.osdLocation) != 0 ||
        Number(object, "fontSize", info.fontSize) != 0 ||
        Number(object, "fontSizeExt", info.fontSizeExt) != 0 ||
        Number64(object, "fgColor", info.fgColor) != 0 ||
        Number(object, "fgAlpha", info.fgAlpha) != 0 ||
        Number64(object, "bgColor", info.bgColor) != 0 ||
        Number(object, "bgAlpha", info.bgAlpha) != 0 ||
        NumberItems(object, "spaceNum", info.picOSDNum, info.spaceNum) != 0 ||
        NumberItems(object, "warpNum", info.picOSDNum, info.warpNum) != 0) {
        return -1;
    }
    json_object *details;
    int found = Items(object, "picOsdDetail", info.picOSDNum, &details);
    for (unsigned int i = 0; found == 1 && i < info.picOSDNum; ++i) {
        json_object *detail = json_object_array_get_idx(details, i);
        _PIC_OSD_DETAILS &target = info.picOsdDetail[i];
        json_object *prefix = Get(detail, "prefixContent");
        if (Number(detail, "prefixEnable", target.prefixEnable) != 0 ||
            (prefix != nullptr && TextValue(prefix, target.prefixContent) != 0)) {
            return -1;
        }
    }
    if (found < 0 || Number(object, "picOSDNum", info.picOSDNum) != 0) {
        return -1;
    }
    json_object *security = Get(object, "securityCodeInfo");
    return Number(security, "securityCodePos", info.securityCodeInfo.securityCodePos);
}

inline int Decode(json_object *root, _VW_PIC_OSD_PARA_S &osd) {
    json_object *info = Get(root, "picOSDInfo");
    json_object *time = Get(root, "timeOSD");
    if (Number64(root, "channelId", osd.channelId) != 0 ||
        Number(root, "overlayType", osd.overlayType) != 0 ||
        (info != nullptr && PicOsdInfo(info, osd.picOSDInfo) != 0) ||
        Number(time, "toMs", osd.timeOSD.toMs) != 0 ||
        Number(time, "type", osd.timeOSD.type) != 0 ||
        OsdText(root, "roadIdOSD", osd.roadIdOSD) != 0 ||
        OsdText(root, "devIdOSD", osd.devIdOSD) != 0 ||
        OsdText(root, "devIdOSD1", osd.devIdOSD1) != 0 ||
        OsdText(root, "dirIdOSD", osd.dirIdOSD) != 0 || OsdText(root, "dirOSD", osd.dirOSD) != 0 ||
        OsdText(root, "customOSD", osd.customOSD) != 0 ||
        OsdText(root, "locateOSD", osd.locateOSD) != 0 ||
        OsdText(root, "monitorOSD", osd.monitorOSD) != 0 ||
        OsdText(root, "laneOSD", osd.laneOSD) != 0 ||
        OsdText(root, "laneDirOSD", osd.laneDirOSD) != 0 ||
        Number(root, "dirOSDParaEn", osd.dirOSDParaEn) != 0 ||
        Number(root, "enableLiveOSD", osd.enableLiveOSD) != 0) {
        return -1;
    }
    return 0;
}

template <std::size_t N>
int Flags(json_object *object, const char *const (&keys)[N], unsigned char *flags) {
    for (std::size_t i = 0; i < N; ++i) {
        json_object *value = Get(object, keys[i]);
        if (value == nullptr) {
            continue;
        }
        if (!IsNumber(value)) {
            return -1;
        }
        flags[i] = json_object_get_int(value) != 0;
    }
    return 0;
}

inline int Decode(json_object *root, ITGT_ABILITY_REST_API &ability) {
    return Flags(root, kAbilityKeys, reinterpret_cast<unsigned char *>(&ability));
}

inline int Decode(json_object *root, _tagITGT_OSD_ABILITY_REST_API_S &ability) {
    auto *bytes = reinterpret_cast<unsigned char *>(&ability);
    for (const char *business : kBusinessKeys) {
        json_object *items = Get(root, business);
        for (const char *item : kOsdItemKeys) {
            if (Flags(Get(items, item), kPictureKeys, bytes) != 0) {
                return -1;
            }
            bytes += sizeof(_tagPIC_OSD_TYPE);
        }
    }
    return 0;
}

}  // namespace hand_written

#endif
