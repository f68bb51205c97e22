// SPDX-License-Identifier: Apache-2.0
// The resources the desk server answers, and the module stages behind each of them.
// A new resource or method is one more row; its stages are looked up in the module at start-up.
#ifndef TALAPI_DESK_ROUTES_H
#define TALAPI_DESK_ROUTES_H

#include <cstddef>

// What a route's request carries besides its query.
enum class DeskBody { kNone, kJson, kUpload };

// The query values that address one instance of a resource. Writers of one instance take turns;
// the desk reads these values with the host's query service before any stage runs.
enum class DeskInstance { kWhole, kChannel, kChannelPicBusiness };

// One method of one resource. The method fixes the calling order:
//   GET, POST: Run, Format.   PUT: PreProc, Parse, Run, Format.
// PreProc and Parse are named for PUT only (null otherwise). uRecordSize is the size of the
// daemon's record that the GET's Run leaves in pRunOut or the PUT's PreProc in pPreProcOut: its
// bytes are the resource's entity tag (0: the route has none).
struct DeskRoute {
    const char *pcPath;
    const char *pcMethod;
    DeskBody enBody;
    DeskInstance enInstance;
    std::size_t uRecordSize;
    const char *pcPreProc;
    const char *pcParse;
    const char *pcRun;
    const char *pcFormat;
};

// Sizes of the daemon's records (bytes).
constexpr std::size_t kCapabilityRecord = 38;      // ITGT_ABILITY_REST_API
constexpr std::size_t kFrameOsdRecord = 6456;      // _VW_PIC_OSD_PARA_S
constexpr std::size_t kOsdCapabilityRecord = 432;  // _tagITGT_OSD_ABILITY_REST_API_S
constexpr std::size_t kDetectorRecord = 24;        // VW_TRAFFIC_FLOW_PARA
constexpr std::size_t kLanguageRecord = 16;        // VW_SYS_BACK_LANGUAGE_PARAM

// clang-format off
constexpr DeskRoute kDeskRoutes[] = {
    // path, method, body, instance, record size, PreProc, Parse, Run, Format
    {"/api/v1/itgt/capability", "GET", DeskBody::kNone, DeskInstance::kWhole,
     kCapabilityRecord, nullptr, nullptr,
     "RunGetITGTCapability", "FormatGetITGTCapability"},
    {"/api/v1/itgt/frame-osd", "GET", DeskBody::kNone, DeskInstance::kChannelPicBusiness,
     kFrameOsdRecord, nullptr, nullptr,
     "RunGetITGTFrameOSD", "FormatGetITGTFrameOSD"},
    {"/api/v1/itgt/frame-osd", "PUT", DeskBody::kJson, DeskInstance::kChannelPicBusiness,
     kFrameOsdRecord, "PreProcPutITGTFrameOSD", "ParsePutITGTFrameOSD",
     "RunPutITGTFrameOSD", "FormatPutITGTFrameOSD"},
    {"/api/v1/itgt/osd-capability", "GET", DeskBody::kNone, DeskInstance::kChannel,
     kOsdCapabilityRecord, nullptr, nullptr,
     "RunGetITGTOsdCapability", "FormatGetITGTOsdCapability"},
    {"/api/v1/itgt/video-vehicle-detector", "GET", DeskBody::kNone, DeskInstance::kChannel,
     kDetectorRecord, nullptr, nullptr,
     "RunGetITGTVideoVehicleDetector", "FormatGetITGTVideoVehicleDetector"},
    {"/api/v1/itgt/video-vehicle-detector", "PUT", DeskBody::kJson, DeskInstance::kChannel,
     kDetectorRecord, "PreProcPutITGTVideoVehicleDetector", "ParsePutITGTVideoVehicleDetector",
     "RunPutITGTVideoVehicleDetector", "FormatPutITGTVideoVehicleDetector"},
    {"/api/v1/itgt/security-code-verify", "POST", DeskBody::kUpload, DeskInstance::kChannel,
     0, nullptr, nullptr,
     "RunPostITGTSecurityCodeVerify", "FormatPostITGTSecurityCodeVerify"},
    {"/api/v1/itgt/sys-back-language", "GET", DeskBody::kNone, DeskInstance::kChannel,
     kLanguageRecord, nullptr, nullptr,
     "RunGetITGTSysBackLanguage", "FormatGetITGTSysBackLanguage"},
    {"/api/v1/itgt/sys-back-language", "PUT", DeskBody::kJson, DeskInstance::kChannel,
     kLanguageRecord, "PreProcPutITGTSysBackLanguage", "ParsePutITGTSysBackLanguage",
     "RunPutITGTSysBackLanguage", "FormatPutITGTSysBackLanguage"},
};
// clang-format on

constexpr unsigned int kDeskRouteCount = sizeof(kDeskRoutes) / sizeof(kDeskRoutes[0]);

#endif
