// SPDX-License-Identifier: Apache-2.0
// The daemon's side of the wire records: the exact bytes that replies carry and writes deliver.
// Little-endian, natural alignment; every padding byte is a named member so that a stored record
// keeps whatever bytes a client wrote. Enumeration values are the daemon's own choice.
#ifndef BACKEND_SIMULATOR_RECORDS_H
#define BACKEND_SIMULATOR_RECORDS_H

#include <cstddef>
#include <cstdint>

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "records travel in native byte order");

// System back language (command 54), one record per channel.
enum SYS_BACK_LANGUAGE_E : uint32_t {
    SYS_LANGUAGE_CHINESE,
    SYS_LANGUAGE_ENGLISH,
    SYS_LANGUAGE_CHINESE_TW
};

struct VW_SYS_BACK_LANGUAGE_PARAM {
    uint64_t ulChannelId;
    SYS_BACK_LANGUAGE_E enSysBackLanguage;
    uint8_t aucPad[4];
};
static_assert(sizeof(VW_SYS_BACK_LANGUAGE_PARAM) == 16, "language record is 16 bytes");
static_assert(offsetof(VW_SYS_BACK_LANGUAGE_PARAM, enSysBackLanguage) == 8, "language at 8");

// Video vehicle detector (command 20100), one record per channel.
struct VW_RECT_INFO {
    int16_t x, y, width, height;
};
static_assert(sizeof(VW_RECT_INFO) == 8, "rectangle is 8 bytes");

struct VW_TRAFFIC_FLOW_PARA {
    uint64_t ulChannelId;
    int32_t enable;
    VW_RECT_INFO rectInfo;
    uint8_t aucPad[4];
};
static_assert(sizeof(VW_TRAFFIC_FLOW_PARA) == 24, "detector record is 24 bytes");
static_assert(offsetof(VW_TRAFFIC_FLOW_PARA, enable) == 8, "enable at 8");
static_assert(offsetof(VW_TRAFFIC_FLOW_PARA, rectInfo) == 12, "rectangle at 12");

// Frame OSD (commands 20099 and 20006), one record per channel and overlay picture type.
constexpr std::size_t PIC_OSD_ITEM_MAX = 37;

// The picture kinds: overlay picture types of the frame OSD, columns of the OSD capability.
enum OVERLAY_PIC_TYPE_E : uint32_t {
    OVERLAY_PIC_ORIGINAL,
    OVERLAY_PIC_SYNTHESIS,
    OVERLAY_PIC_FEATURE
};
constexpr uint32_t OVERLAY_PIC_TYPE_NUM = 3;

// OSD item types, numbered as the rows of the OSD capability.
// clang-format off
enum PIC_OSD_ITEM_E : uint32_t {
    PIC_OSD_TIME, PIC_OSD_PLATE_ID, PIC_OSD_VEHICLE_TYPE, PIC_OSD_LANE_ID, PIC_OSD_PLATE_COLOR,
    PIC_OSD_VEHICLE_COLOR, PIC_OSD_ROAD_ID, PIC_OSD_DEV_ID, PIC_OSD_DIR_ID, PIC_OSD_DIR,
    PIC_OSD_CUSTOM, PIC_OSD_SECURITY_CODE, PIC_OSD_PER_BRAND_TYPE, PIC_OSD_SUB_BRAND_TYPE,
    PIC_OSD_YEAR_BRAND_TYPE, PIC_OSD_LOCATE_DESC, PIC_OSD_MONITOR_INFO, PIC_OSD_BRAND_INFO,
    PIC_OSD_SPEED, PIC_OSD_LANE_DESC, PIC_OSD_PIC_NUM, PIC_OSD_ILLEGAL_NUM, PIC_OSD_ILLEGAL_DESC,
    PIC_OSD_SPEED_LIMIT, PIC_OSD_ILLEGAL_SPEED, PIC_OSD_LANE_DIR_DESC, PIC_OSD_VEHICLE_LEN,
    PIC_OSD_RED_LIGHT_START, PIC_OSD_RED_LIGHT_END, PIC_OSD_RED_LIGHT_PERIOD,
    PIC_OSD_SNAP_TRIG_TYPE, PIC_OSD_VEHICLE_MFR_TYPE, PIC_OSD_RADAR_DIR_DESC, PIC_OSD_VEHICLE_DIR,
    PIC_OSD_VEHICLE_TYPE_EXT, PIC_OSD_SHELTER_PLATE, PIC_OSD_ITEM_NUM
};
// clang-format on
static_assert(PIC_OSD_ITEM_NUM == 36, "36 OSD item types");

enum OSD_LOCATION_E : uint32_t { OSD_LOCATION_TOP = 0, OSD_LOCATION_BOTTOM = 1 };
enum FONT_SIZE_E : uint32_t { FONT_SIZE_SMALL = 0, FONT_SIZE_MEDIUM = 1, FONT_SIZE_LARGE = 2 };
enum FONT_SIZE_EXT_E : uint32_t { FONT_SIZE_EXT_NONE = 0, FONT_SIZE_EXT_DOUBLE = 1 };
enum VW_OSD_YMD_TYPE_E : uint32_t { OSD_YMD_DASH = 0, OSD_YMD_SLASH = 1, OSD_YMD_CHINESE = 2 };
enum SECURITY_CODE_POS_E : uint32_t { SECURITY_CODE_TOP_RIGHT = 0, SECURITY_CODE_BOTTOM_RIGHT = 1 };

struct PIC_OSD_DETAILS_S {
    int32_t prefixEnable;
    char prefixContent[97];
    uint8_t aucPad[3];
};
static_assert(sizeof(PIC_OSD_DETAILS_S) == 104 && alignof(PIC_OSD_DETAILS_S) == 4, "prefix");

struct TIME_OSD_PARA_S {
    int32_t toMs;
    VW_OSD_YMD_TYPE_E type;
};
static_assert(sizeof(TIME_OSD_PARA_S) == 8, "time item is 8 bytes");

struct CUSTOM_OSD_PARA_S {
    char osdContent[177];
};
static_assert(sizeof(CUSTOM_OSD_PARA_S) == 177 && alignof(CUSTOM_OSD_PARA_S) == 1, "text item");

struct SECURITY_CODE_INFO_S {
    SECURITY_CODE_POS_E securityCodePos;
};

struct PIC_OSD_INFO_S {
    uint32_t picOSDNum;
    PIC_OSD_ITEM_E picOSDType[PIC_OSD_ITEM_MAX];
    OSD_LOCATION_E osdLocation;
    FONT_SIZE_E fontSize;
    FONT_SIZE_EXT_E fontSizeExt;
    uint8_t aucPad1[4];
    uint64_t fgColor;
    uint8_t fgAlpha;
    uint8_t aucPad2[7];
    uint64_t bgColor;
    uint8_t bgAlpha;
    uint8_t aucPad3[7];
    uint64_t spaceNum[PIC_OSD_ITEM_MAX];
    uint64_t warpNum[PIC_OSD_ITEM_MAX];
    PIC_OSD_DETAILS_S picOsdDetail[PIC_OSD_ITEM_MAX];
    SECURITY_CODE_INFO_S securityCodeInfo;
    uint8_t aucReserved[4];
};
static_assert(sizeof(PIC_OSD_INFO_S) == 4648 && alignof(PIC_OSD_INFO_S) == 8, "item list");
static_assert(offsetof(PIC_OSD_INFO_S, picOSDType) == 4, "types at 4");
static_assert(offsetof(PIC_OSD_INFO_S, osdLocation) == 152, "location at 152");
static_assert(offsetof(PIC_OSD_INFO_S, fontSize) == 156, "font size at 156");
static_assert(offsetof(PIC_OSD_INFO_S, fontSizeExt) == 160, "extended font size at 160");
static_assert(offsetof(PIC_OSD_INFO_S, fgColor) == 168, "text colour at 168");
static_assert(offsetof(PIC_OSD_INFO_S, fgAlpha) == 176, "text opacity at 176");
static_assert(offsetof(PIC_OSD_INFO_S, bgColor) == 184, "background colour at 184");
static_assert(offsetof(PIC_OSD_INFO_S, bgAlpha) == 192, "background opacity at 192");
static_assert(offsetof(PIC_OSD_INFO_S, spaceNum) == 200, "spaces at 200");
static_assert(offsetof(PIC_OSD_INFO_S, warpNum) == 496, "line breaks at 496");
static_assert(offsetof(PIC_OSD_INFO_S, picOsdDetail) == 792, "prefixes at 792");
static_assert(offsetof(PIC_OSD_INFO_S, securityCodeInfo) == 4640, "security code at 4640");

struct VW_PIC_OSD_PARA_S {
    uint64_t channelId;
    OVERLAY_PIC_TYPE_E overlayType;
    uint8_t aucPad1[4];
    PIC_OSD_INFO_S picOSDInfo;
    TIME_OSD_PARA_S timeOSD;
    CUSTOM_OSD_PARA_S roadIdOSD, devIdOSD, devIdOSD1, dirIdOSD, dirOSD, customOSD, locateOSD,
        monitorOSD, laneOSD, laneDirOSD;  // back to back, 177 bytes each
    uint8_t aucPad2[2];
    int32_t dirOSDParaEn;
    int32_t enableLiveOSD;
    uint8_t aucPad3[4];
};
static_assert(sizeof(VW_PIC_OSD_PARA_S) == 6456 && alignof(VW_PIC_OSD_PARA_S) == 8, "frame OSD");
static_assert(offsetof(VW_PIC_OSD_PARA_S, overlayType) == 8, "overlay type at 8");
static_assert(offsetof(VW_PIC_OSD_PARA_S, picOSDInfo) == 16, "item list at 16");
static_assert(offsetof(VW_PIC_OSD_PARA_S, timeOSD) == 4664, "time item at 4664");
static_assert(offsetof(VW_PIC_OSD_PARA_S, roadIdOSD) == 4672, "texts from 4672");
static_assert(offsetof(VW_PIC_OSD_PARA_S, devIdOSD) == 4849, "texts back to back");
static_assert(offsetof(VW_PIC_OSD_PARA_S, laneDirOSD) == 6265, "last text at 6265");
static_assert(offsetof(VW_PIC_OSD_PARA_S, dirOSDParaEn) == 6444, "direction enable at 6444");
static_assert(offsetof(VW_PIC_OSD_PARA_S, enableLiveOSD) == 6448, "live OSD enable at 6448");

// Intelligent capability (command 31110): one flag byte per function, 1 when offered.
struct ITGT_ABILITY_S {
    uint8_t audio, motionDetection, Occlustion, videoAnalysis, autoTracking, scensechange,
        scenseAdapter, outofFocus, crowdAnalysis, videoDiagnosis, complexBehavior, faceDetection,
        faceRecog, faceAttr, vhdClassify, bodyAttr, nonmotorAttr, vhdfaceMix, humanCount, heatMap,
        crowdDensity, queueDetect, faceRecMMC, onlineLearning, imgQualEval, omni, vlpr, vlprQfree,
        trafficCampus, parkingDetection, trafficStatistics, its, itsEpolice, illegalball,
        trafficEvent, itsSixinone, itsPassage, itsPedRunRed;
};
static_assert(sizeof(ITGT_ABILITY_S) == 38, "38 capability flags");
static_assert(offsetof(ITGT_ABILITY_S, faceDetection) == 11 &&
                  offsetof(ITGT_ABILITY_S, vlpr) == 26 &&
                  offsetof(ITGT_ABILITY_S, itsPedRunRed) == 37,
              "capability flags in wire order");

// OSD capability (command 31111): per business, per item type, per picture kind.
struct PIC_OSD_KIND_S {
    uint8_t original, synthesis, feature;
};
struct PIC_OSD_ABILITY_S {
    PIC_OSD_KIND_S astItem[PIC_OSD_ITEM_NUM];
};
struct ITGT_OSD_ABILITY_S {
    PIC_OSD_ABILITY_S TrafficDome, Vlpr, Vhd, Face;
};
static_assert(sizeof(PIC_OSD_ABILITY_S) == 108, "one business is 108 bytes");
static_assert(sizeof(ITGT_OSD_ABILITY_S) == 432 && offsetof(ITGT_OSD_ABILITY_S, Face) == 324,
              "four businesses");

// Security code verification (command 20101): the verdict on the stored picture.
constexpr int32_t SECURITY_CODE_PASSED = 4502;
constexpr int32_t SECURITY_CODE_FAILED = 4501;

struct VERIFY_RESULT_S {
    uint64_t channelId;
    int32_t verifyResult;
    uint8_t aucPad[4];
};
static_assert(sizeof(VERIFY_RESULT_S) == 16 && offsetof(VERIFY_RESULT_S, verifyResult) == 8,
              "verdict record");

#endif
