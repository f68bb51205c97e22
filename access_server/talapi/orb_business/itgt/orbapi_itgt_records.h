// SPDX-License-Identifier: Apache-2.0
// The module's records: the same bytes in memory, in the backend daemon's replies and in its
// write commands (little-endian, natural alignment). Every size and offset is checked here, so a
// layout slip fails the build on every target. Each record is followed by its JSON schema, one
// line per key in text order.
#ifndef ORBAPI_ITGT_RECORDS_H
#define ORBAPI_ITGT_RECORDS_H

#include <cstddef>

#include "talapi_business_common.h"

// System back language of a channel (command 54).
// Language type; its values are the backend's and pass through unchecked.
enum SYS_BACK_LANGUAGE : unsigned int {};

struct VW_SYS_BACK_LANGUAGE_PARAM {
    unsigned long long ulChannelId;
    SYS_BACK_LANGUAGE enSysBackLanguage;
};
static_assert(sizeof(VW_SYS_BACK_LANGUAGE_PARAM) == 16, "16-byte wire record");
static_assert(alignof(VW_SYS_BACK_LANGUAGE_PARAM) == 8, "8-aligned");
static_assert(offsetof(VW_SYS_BACK_LANGUAGE_PARAM, enSysBackLanguage) == 8, "language at 8");

template <>
struct jsonSchema<VW_SYS_BACK_LANGUAGE_PARAM> {
    using T = VW_SYS_BACK_LANGUAGE_PARAM;
    static constexpr auto members() {
        return std::make_tuple(member(&T::ulChannelId, "channelId"),
                               member(&T::enSysBackLanguage, "mode"));
    }
};

// Intelligent capability set (command 31110).
// One flag byte per intelligent function, each named as its JSON key; true when non-zero.
struct ITGT_ABILITY_REST_API {
    bool audio;
    bool motionDetection;
    bool Occlustion;
    bool videoAnalysis;
    bool autoTracking;
    bool scensechange;
    bool scenseAdapter;
    bool outofFocus;
    bool crowdAnalysis;
    bool videoDiagnosis;
    bool complexBehavior;
    bool faceDetection;
    bool faceRecog;
    bool faceAttr;
    bool vhdClassify;
    bool bodyAttr;
    bool nonmotorAttr;
    bool vhdfaceMix;
    bool humanCount;
    bool heatMap;
    bool crowdDensity;
    bool queueDetect;
    bool faceRecMMC;
    bool onlineLearning;
    bool imgQualEval;
    bool omni;
    bool vlpr;
    bool vlprQfree;
    bool trafficCampus;
    bool parkingDetection;
    bool trafficStatistics;
    bool its;
    bool itsEpolice;
    bool illegalball;
    bool trafficEvent;
    bool itsSixinone;
    bool itsPassage;
    bool itsPedRunRed;
};
static_assert(sizeof(ITGT_ABILITY_REST_API) == 38, "38 flag bytes, no padding");
static_assert(offsetof(ITGT_ABILITY_REST_API, heatMap) == 19, "heatMap at 19");
static_assert(offsetof(ITGT_ABILITY_REST_API, itsPedRunRed) == 37, "itsPedRunRed last");

template <>
struct jsonSchema<ITGT_ABILITY_REST_API> {
    using T = ITGT_ABILITY_REST_API;
    static constexpr auto members() {
        return std::make_tuple(
            member(&T::audio, "audio"), member(&T::motionDetection, "motionDetection"),
            member(&T::Occlustion, "Occlustion"), member(&T::videoAnalysis, "videoAnalysis"),
            member(&T::autoTracking, "autoTracking"), member(&T::scensechange, "scensechange"),
            member(&T::scenseAdapter, "scenseAdapter"), member(&T::outofFocus, "outofFocus"),
            member(&T::crowdAnalysis, "crowdAnalysis"),
            member(&T::videoDiagnosis, "videoDiagnosis"),
            member(&T::complexBehavior, "complexBehavior"),
            member(&T::faceDetection, "faceDetection"), member(&T::faceRecog, "faceRecog"),
            member(&T::faceAttr, "faceAttr"), member(&T::vhdClassify, "vhdClassify"),
            member(&T::bodyAttr, "bodyAttr"), member(&T::nonmotorAttr, "nonmotorAttr"),
            member(&T::vhdfaceMix, "vhdfaceMix"), member(&T::humanCount, "humanCount"),
            member(&T::heatMap, "heatMap"), member(&T::crowdDensity, "crowdDensity"),
            member(&T::queueDetect, "queueDetect"), member(&T::faceRecMMC, "faceRecMMC"),
            member(&T::onlineLearning, "onlineLearning"), member(&T::imgQualEval, "imgQualEval"),
            member(&T::omni, "omni"), member(&T::vlpr, "vlpr"), member(&T::vlprQfree, "vlprQfree"),
            member(&T::trafficCampus, "trafficCampus"),
            member(&T::parkingDetection, "parkingDetection"),
            member(&T::trafficStatistics, "trafficStatistics"), member(&T::its, "its"),
            member(&T::itsEpolice, "itsEpolice"), member(&T::illegalball, "illegalball"),
            member(&T::trafficEvent, "trafficEvent"), member(&T::itsSixinone, "itsSixinone"),
            member(&T::itsPassage, "itsPassage"), member(&T::itsPedRunRed, "itsPedRunRed"));
    }
};

// Frame OSD (commands 20099 "TrafficDome" and 20006 "Vlpr"): the text overlaid on snapshot
// pictures, per channel and overlay picture type. Enumeration values are the backend's.
constexpr unsigned int PIC_OSD_ITEM_CAPACITY = 37;

enum VW_OVERLAY_PIC_TYPE_E : unsigned int {};
enum VW_PIC_OSD_ITEM_E : unsigned int {};
enum VW_OSD_LOCATION_E : unsigned int {};
enum VW_OSD_FONT_SIZE_E : unsigned int {};
enum FONT_SIZE_EXT_E : unsigned int {};
enum VW_OSD_YMD_TYPE_E : unsigned int {};
enum VW_SECURITY_CODE_POS_E : unsigned int {};

// The prefix of one item.
struct _PIC_OSD_DETAILS {
    int prefixEnable;
    char prefixContent[97];
};
static_assert(sizeof(_PIC_OSD_DETAILS) == 104 && alignof(_PIC_OSD_DETAILS) == 4, "104 bytes");
static_assert(offsetof(_PIC_OSD_DETAILS, prefixContent) == 4, "prefix text at 4");

template <>
struct jsonSchema<_PIC_OSD_DETAILS> {
    static constexpr auto members() {
        return std::make_tuple(member(&_PIC_OSD_DETAILS::prefixEnable, "prefixEnable"),
                               member(&_PIC_OSD_DETAILS::prefixContent, "prefixContent"));
    }
};

struct _TIME_OSD_PARA_S {
    int toMs;
    VW_OSD_YMD_TYPE_E type;
};
static_assert(sizeof(_TIME_OSD_PARA_S) == 8 && offsetof(_TIME_OSD_PARA_S, type) == 4, "8 bytes");

template <>
struct jsonSchema<_TIME_OSD_PARA_S> {
    static constexpr auto members() {
        return std::make_tuple(member(&_TIME_OSD_PARA_S::toMs, "toMs"),
                               member(&_TIME_OSD_PARA_S::type, "type"));
    }
};

// One free-text item.
struct _CUSTOM_OSD_PARA_S {
    char osdContent[177];
};
static_assert(sizeof(_CUSTOM_OSD_PARA_S) == 177 && alignof(_CUSTOM_OSD_PARA_S) == 1, "177 bytes");

template <>
struct jsonTextRecord<_CUSTOM_OSD_PARA_S> : std::true_type {};

template <>
struct jsonSchema<_CUSTOM_OSD_PARA_S> {
    static constexpr auto members() {
        return std::make_tuple(member(&_CUSTOM_OSD_PARA_S::osdContent, "osdContent"));
    }
};

struct _SECURITY_CODE_INFO_S {
    VW_SECURITY_CODE_POS_E securityCodePos;
};
static_assert(sizeof(_SECURITY_CODE_INFO_S) == 4, "4 bytes");

template <>
struct jsonSchema<_SECURITY_CODE_INFO_S> {
    static constexpr auto members() {
        return std::make_tuple(member(&_SECURITY_CODE_INFO_S::securityCodePos, "securityCodePos"));
    }
};

// The item list (picOSDNum items, described by the four arrays) and its common style.
struct _PIC_OSD_INFO_S {
    unsigned int picOSDNum;
    VW_PIC_OSD_ITEM_E picOSDType[PIC_OSD_ITEM_CAPACITY];
    VW_OSD_LOCATION_E osdLocation;
    VW_OSD_FONT_SIZE_E fontSize;
    FONT_SIZE_EXT_E fontSizeExt;
    unsigned long long fgColor;
    unsigned char fgAlpha;
    unsigned long long bgColor;
    unsigned char bgAlpha;
    unsigned long long spaceNum[PIC_OSD_ITEM_CAPACITY];
    unsigned long long warpNum[PIC_OSD_ITEM_CAPACITY];
    _PIC_OSD_DETAILS picOsdDetail[PIC_OSD_ITEM_CAPACITY];
    _SECURITY_CODE_INFO_S securityCodeInfo;
    unsigned char aucUnmapped[4];  // the backend's; never written by the module
};
static_assert(sizeof(_PIC_OSD_INFO_S) == 4648 && alignof(_PIC_OSD_INFO_S) == 8, "4648 bytes");
static_assert(offsetof(_PIC_OSD_INFO_S, picOSDType) == 4, "layout");
static_assert(offsetof(_PIC_OSD_INFO_S, osdLocation) == 152, "layout");
static_assert(offsetof(_PIC_OSD_INFO_S, fontSize) == 156, "layout");
static_assert(offsetof(_PIC_OSD_INFO_S, fontSizeExt) == 160, "layout");
static_assert(offsetof(_PIC_OSD_INFO_S, fgColor) == 168, "layout");
static_assert(offsetof(_PIC_OSD_INFO_S, fgAlpha) == 176, "layout");
static_assert(offsetof(_PIC_OSD_INFO_S, bgColor) == 184, "layout");
static_assert(offsetof(_PIC_OSD_INFO_S, bgAlpha) == 192, "layout");
static_assert(offsetof(_PIC_OSD_INFO_S, spaceNum) == 200, "layout");
static_assert(offsetof(_PIC_OSD_INFO_S, warpNum) == 496, "layout");
static_assert(offsetof(_PIC_OSD_INFO_S, picOsdDetail) == 792, "layout");
static_assert(offsetof(_PIC_OSD_INFO_S, securityCodeInfo) == 4640, "layout");
static_assert(offsetof(_PIC_OSD_INFO_S, aucUnmapped) == 4644, "layout");

// The four arrays share picOSDNum; "picOSDNum" itself comes after them, so it decides last.
template <>
struct jsonSchema<_PIC_OSD_INFO_S> {
    using T = _PIC_OSD_INFO_S;
    static constexpr auto members() {
        return std::make_tuple(
            array_member(&T::picOSDNum, &T::picOSDType, "picOSDType"),
            member(&T::osdLocation, "osdLocation"), member(&T::fontSize, "fontSize"),
            member(&T::fontSizeExt, "fontSizeExt"), member(&T::fgColor, "fgColor"),
            member(&T::fgAlpha, "fgAlpha"), member(&T::bgColor, "bgColor"),
            member(&T::bgAlpha, "bgAlpha"), array_member(&T::picOSDNum, &T::spaceNum, "spaceNum"),
            array_member(&T::picOSDNum, &T::warpNum, "warpNum"),
            array_member(&T::picOSDNum, &T::picOsdDetail, "picOsdDetail"),
            member(&T::picOSDNum, "picOSDNum"), member(&T::securityCodeInfo, "securityCodeInfo"));
    }
};

struct _VW_PIC_OSD_PARA_S {
    unsigned long long channelId;
    VW_OVERLAY_PIC_TYPE_E overlayType;
    _PIC_OSD_INFO_S picOSDInfo;
    _TIME_OSD_PARA_S timeOSD;
    _CUSTOM_OSD_PARA_S roadIdOSD;
    _CUSTOM_OSD_PARA_S devIdOSD;
    _CUSTOM_OSD_PARA_S devIdOSD1;
    _CUSTOM_OSD_PARA_S dirIdOSD;
    _CUSTOM_OSD_PARA_S dirOSD;
    _CUSTOM_OSD_PARA_S customOSD;
    _CUSTOM_OSD_PARA_S locateOSD;
    _CUSTOM_OSD_PARA_S monitorOSD;
    _CUSTOM_OSD_PARA_S laneOSD;
    _CUSTOM_OSD_PARA_S laneDirOSD;
    int dirOSDParaEn;
    int enableLiveOSD;
};
static_assert(sizeof(_VW_PIC_OSD_PARA_S) == 6456 && alignof(_VW_PIC_OSD_PARA_S) == 8, "6456");
static_assert(offsetof(_VW_PIC_OSD_PARA_S, overlayType) == 8, "layout");
static_assert(offsetof(_VW_PIC_OSD_PARA_S, picOSDInfo) == 16, "layout");
static_assert(offsetof(_VW_PIC_OSD_PARA_S, timeOSD) == 4664, "layout");
static_assert(offsetof(_VW_PIC_OSD_PARA_S, roadIdOSD) == 4672, "layout");
static_assert(offsetof(_VW_PIC_OSD_PARA_S, devIdOSD) == 4849, "layout");
static_assert(offsetof(_VW_PIC_OSD_PARA_S, devIdOSD1) == 5026, "layout");
static_assert(offsetof(_VW_PIC_OSD_PARA_S, dirIdOSD) == 5203, "layout");
static_assert(offsetof(_VW_PIC_OSD_PARA_S, dirOSD) == 5380, "layout");
static_assert(offsetof(_VW_PIC_OSD_PARA_S, customOSD) == 5557, "layout");
static_assert(offsetof(_VW_PIC_OSD_PARA_S, locateOSD) == 5734, "layout");
static_assert(offsetof(_VW_PIC_OSD_PARA_S, monitorOSD) == 5911, "layout");
static_assert(offsetof(_VW_PIC_OSD_PARA_S, laneOSD) == 6088, "layout");
static_assert(offsetof(_VW_PIC_OSD_PARA_S, laneDirOSD) == 6265, "layout");
static_assert(offsetof(_VW_PIC_OSD_PARA_S, dirOSDParaEn) == 6444, "layout");
static_assert(offsetof(_VW_PIC_OSD_PARA_S, enableLiveOSD) == 6448, "layout");

template <>
struct jsonSchema<_VW_PIC_OSD_PARA_S> {
    using T = _VW_PIC_OSD_PARA_S;
    static constexpr auto members() {
        return std::make_tuple(
            member(&T::channelId, "channelId"), member(&T::overlayType, "overlayType"),
            member(&T::picOSDInfo, "picOSDInfo"), member(&T::timeOSD, "timeOSD"),
            member(&T::roadIdOSD, "roadIdOSD"), member(&T::devIdOSD, "devIdOSD"),
            member(&T::devIdOSD1, "devIdOSD1"), member(&T::dirIdOSD, "dirIdOSD"),
            member(&T::dirOSD, "dirOSD"), member(&T::customOSD, "customOSD"),
            member(&T::locateOSD, "locateOSD"), member(&T::monitorOSD, "monitorOSD"),
            member(&T::laneOSD, "laneOSD"), member(&T::laneDirOSD, "laneDirOSD"),
            member(&T::dirOSDParaEn, "dirOSDParaEn"), member(&T::enableLiveOSD, "enableLiveOSD"));
    }
};

// Video vehicle detector of a channel (command 20100): its switch and detection region.
struct VW_RECT_INFO {
    short sX;
    short sY;
    short sWidth;
    short sHeight;
};
static_assert(sizeof(VW_RECT_INFO) == 8 && offsetof(VW_RECT_INFO, sHeight) == 6, "8 bytes");

template <>
struct jsonSchema<VW_RECT_INFO> {
    static constexpr auto members() {
        return std::make_tuple(member(&VW_RECT_INFO::sX, "x"), member(&VW_RECT_INFO::sY, "y"),
                               member(&VW_RECT_INFO::sWidth, "width"),
                               member(&VW_RECT_INFO::sHeight, "height"));
    }
};

struct VW_TRAFFIC_FLOW_PARA {
    unsigned long long ulChannelId;
    int iEnable;
    VW_RECT_INFO stRectInfo;
};
static_assert(sizeof(VW_TRAFFIC_FLOW_PARA) == 24 && alignof(VW_TRAFFIC_FLOW_PARA) == 8, "24 bytes");
static_assert(offsetof(VW_TRAFFIC_FLOW_PARA, iEnable) == 8, "enable at 8");
static_assert(offsetof(VW_TRAFFIC_FLOW_PARA, stRectInfo) == 12, "region at 12");

template <>
struct jsonSchema<VW_TRAFFIC_FLOW_PARA> {
    using T = VW_TRAFFIC_FLOW_PARA;
    static constexpr auto members() {
        return std::make_tuple(member(&T::ulChannelId, "channelId"), member(&T::iEnable, "enable"),
                               member(&T::stRectInfo, "rectInfo"));
    }
};

// OSD capability (command 31111): for each business, which OSD item can be overlaid on which
// picture kind; one flag byte each, true when non-zero, each named as its JSON key.
struct _tagPIC_OSD_TYPE {
    bool original;
    bool synthesis;
    bool feature;
};
static_assert(sizeof(_tagPIC_OSD_TYPE) == 3, "3 flags");

template <>
struct jsonSchema<_tagPIC_OSD_TYPE> {
    using T = _tagPIC_OSD_TYPE;
    static constexpr auto members() {
        return std::make_tuple(member(&T::original, "original"), member(&T::synthesis, "synthesis"),
                               member(&T::feature, "feature"));
    }
};

struct _tagPIC_OSD_ABILITY {
    _tagPIC_OSD_TYPE TimeOSD;
    _tagPIC_OSD_TYPE PlateIdOSD;
    _tagPIC_OSD_TYPE VehicleTypeOSD;
    _tagPIC_OSD_TYPE LaneIdOSD;
    _tagPIC_OSD_TYPE PlateColorOSD;
    _tagPIC_OSD_TYPE VehicleColorOSD;
    _tagPIC_OSD_TYPE RoadIdOSD;
    _tagPIC_OSD_TYPE DevIdOSD;
    _tagPIC_OSD_TYPE DirIdOSD;
    _tagPIC_OSD_TYPE DirOSD;
    _tagPIC_OSD_TYPE CustomOSD;
    _tagPIC_OSD_TYPE SecurityCodeOSD;
    _tagPIC_OSD_TYPE Per_Brand_Type_OSD;
    _tagPIC_OSD_TYPE Sub_Brand_Type_OSD;
    _tagPIC_OSD_TYPE Year_Brand_Type_OSD;
    _tagPIC_OSD_TYPE LocateDescOSD;
    _tagPIC_OSD_TYPE MonitorInfoOSD;
    _tagPIC_OSD_TYPE BrandInfoOSD;
    _tagPIC_OSD_TYPE SpeedOSD;
    _tagPIC_OSD_TYPE LaneDescOSD;
    _tagPIC_OSD_TYPE PicNumOSD;
    _tagPIC_OSD_TYPE IllegalNumOSD;
    _tagPIC_OSD_TYPE IllegalDescOSD;
    _tagPIC_OSD_TYPE SpeedLimitOSD;
    _tagPIC_OSD_TYPE IllegalSpeedOSD;
    _tagPIC_OSD_TYPE LaneDirDescOSD;
    _tagPIC_OSD_TYPE VehicleLenOSD;
    _tagPIC_OSD_TYPE RedLightStartOSD;
    _tagPIC_OSD_TYPE RedLightEndOSD;
    _tagPIC_OSD_TYPE RedLightPeriodOSD;
    _tagPIC_OSD_TYPE SnapTrigTypeOSD;
    _tagPIC_OSD_TYPE VehicleMFRTypeOSD;
    _tagPIC_OSD_TYPE RadarDirDescOsd;
    _tagPIC_OSD_TYPE VehicleDirOSD;
    _tagPIC_OSD_TYPE VehicleTypeExtOSD;
    _tagPIC_OSD_TYPE ShelterPlateOSD;
};
static_assert(sizeof(_tagPIC_OSD_ABILITY) == 108, "36 items of 3 flags");
static_assert(offsetof(_tagPIC_OSD_ABILITY, SecurityCodeOSD) == 3 * 11, "item k at 3k");
static_assert(offsetof(_tagPIC_OSD_ABILITY, ShelterPlateOSD) == 3 * 35, "item k at 3k");

template <>
struct jsonSchema<_tagPIC_OSD_ABILITY> {
    using T = _tagPIC_OSD_ABILITY;
    static constexpr auto members() {
        return std::make_tuple(
            member(&T::TimeOSD, "TimeOSD"), member(&T::PlateIdOSD, "PlateIdOSD"),
            member(&T::VehicleTypeOSD, "VehicleTypeOSD"), member(&T::LaneIdOSD, "LaneIdOSD"),
            member(&T::PlateColorOSD, "PlateColorOSD"),
            member(&T::VehicleColorOSD, "VehicleColorOSD"), member(&T::RoadIdOSD, "RoadIdOSD"),
            member(&T::DevIdOSD, "DevIdOSD"), member(&T::DirIdOSD, "DirIdOSD"),
            member(&T::DirOSD, "DirOSD"), member(&T::CustomOSD, "CustomOSD"),
            member(&T::SecurityCodeOSD, "SecurityCodeOSD"),
            member(&T::Per_Brand_Type_OSD, "Per_Brand_Type_OSD"),
            member(&T::Sub_Brand_Type_OSD, "Sub_Brand_Type_OSD"),
            member(&T::Year_Brand_Type_OSD, "Year_Brand_Type_OSD"),
            member(&T::LocateDescOSD, "LocateDescOSD"),
            member(&T::MonitorInfoOSD, "MonitorInfoOSD"), member(&T::BrandInfoOSD, "BrandInfoOSD"),
            member(&T::SpeedOSD, "SpeedOSD"), member(&T::LaneDescOSD, "LaneDescOSD"),
            member(&T::PicNumOSD, "PicNumOSD"), member(&T::IllegalNumOSD, "IllegalNumOSD"),
            member(&T::IllegalDescOSD, "IllegalDescOSD"),
            member(&T::SpeedLimitOSD, "SpeedLimitOSD"),
            member(&T::IllegalSpeedOSD, "IllegalSpeedOSD"),
            member(&T::LaneDirDescOSD, "LaneDirDescOSD"),
            member(&T::VehicleLenOSD, "VehicleLenOSD"),
            member(&T::RedLightStartOSD, "RedLightStartOSD"),
            member(&T::RedLightEndOSD, "RedLightEndOSD"),
            member(&T::RedLightPeriodOSD, "RedLightPeriodOSD"),
            member(&T::SnapTrigTypeOSD, "SnapTrigTypeOSD"),
            member(&T::VehicleMFRTypeOSD, "VehicleMFRTypeOSD"),
            member(&T::RadarDirDescOsd, "RadarDirDescOsd"),
            member(&T::VehicleDirOSD, "VehicleDirOSD"),
            member(&T::VehicleTypeExtOSD, "VehicleTypeExtOSD"),
            member(&T::ShelterPlateOSD, "ShelterPlateOSD"));
    }
};

struct _tagITGT_OSD_ABILITY_REST_API_S {
    _tagPIC_OSD_ABILITY TrafficDome;
    _tagPIC_OSD_ABILITY Vlpr;
    _tagPIC_OSD_ABILITY Vhd;
    _tagPIC_OSD_ABILITY Face;
};
static_assert(sizeof(_tagITGT_OSD_ABILITY_REST_API_S) == 432, "4 businesses");
static_assert(offsetof(_tagITGT_OSD_ABILITY_REST_API_S, Vlpr) == 108, "layout");
static_assert(offsetof(_tagITGT_OSD_ABILITY_REST_API_S, Vhd) == 216, "layout");
static_assert(offsetof(_tagITGT_OSD_ABILITY_REST_API_S, Face) == 324, "layout");

template <>
struct jsonSchema<_tagITGT_OSD_ABILITY_REST_API_S> {
    using T = _tagITGT_OSD_ABILITY_REST_API_S;
    static constexpr auto members() {
        return std::make_tuple(member(&T::TrafficDome, "TrafficDome"), member(&T::Vlpr, "Vlpr"),
                               member(&T::Vhd, "Vhd"), member(&T::Face, "Face"));
    }
};

// Security code verification (command 20101): the backend's verdict; 4502 passes.
constexpr int SECURITY_CODE_VERIFY_PASSED = 4502;

struct VerifyResultParam {
    unsigned long long channelId;
    int verifyResult;
};
static_assert(sizeof(VerifyResultParam) == 16 && offsetof(VerifyResultParam, verifyResult) == 8,
              "16 bytes");

template <>
struct jsonSchema<VerifyResultParam> {
    static constexpr auto members() {
        return std::make_tuple(member(&VerifyResultParam::channelId, "channelId"),
                               member(&VerifyResultParam::verifyResult, "verifyResult"));
    }
};

#endif
