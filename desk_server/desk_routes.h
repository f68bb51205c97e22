// The resources the desk server answers, and the module stages behind each of them.
// A new resource or method is one more row; its stages are looked up in the module at start-up.
#ifndef TALAPI_DESK_ROUTES_H
#define TALAPI_DESK_ROUTES_H

// One method of one resource. The method fixes the calling order:
//   GET, POST: Run, Format.   PUT: PreProc, Parse, Run, Format.
// PreProc and Parse are named for PUT only (null otherwise). A route with a Parse stage reads a
// JSON body; an upload route stores its body in a file under /tmp named in the client record.
struct DeskRoute {
    const char *pcPath;
    const char *pcMethod;
    bool bUpload;
    const char *pcPreProc;
    const char *pcParse;
    const char *pcRun;
    const char *pcFormat;
};

// clang-format off
constexpr DeskRoute kDeskRoutes[] = {
    // path, method, upload, PreProc, Parse, Run, Format
    {"/api/v1/itgt/capability", "GET", false, nullptr, nullptr,
     "RunGetITGTCapability", "FormatGetITGTCapability"},
    {"/api/v1/itgt/frame-osd", "GET", false, nullptr, nullptr,
     "RunGetITGTFrameOSD", "FormatGetITGTFrameOSD"},
    {"/api/v1/itgt/frame-osd", "PUT", false,
     "PreProcPutITGTFrameOSD", "ParsePutITGTFrameOSD",
     "RunPutITGTFrameOSD", "FormatPutITGTFrameOSD"},
    {"/api/v1/itgt/osd-capability", "GET", false, nullptr, nullptr,
     "RunGetITGTOsdCapability", "FormatGetITGTOsdCapability"},
    {"/api/v1/itgt/video-vehicle-detector", "GET", false, nullptr, nullptr,
     "RunGetITGTVideoVehicleDetector", "FormatGetITGTVideoVehicleDetector"},
    {"/api/v1/itgt/video-vehicle-detector", "PUT", false,
     "PreProcPutITGTVideoVehicleDetector", "ParsePutITGTVideoVehicleDetector",
     "RunPutITGTVideoVehicleDetector", "FormatPutITGTVideoVehicleDetector"},
    {"/api/v1/itgt/security-code-verify", "POST", true, nullptr, nullptr,
     "RunPostITGTSecurityCodeVerify", "FormatPostITGTSecurityCodeVerify"},
    {"/api/v1/itgt/sys-back-language", "GET", false, nullptr, nullptr,
     "RunGetITGTSysBackLanguage", "FormatGetITGTSysBackLanguage"},
    {"/api/v1/itgt/sys-back-language", "PUT", false,
     "PreProcPutITGTSysBackLanguage", "ParsePutITGTSysBackLanguage",
     "RunPutITGTSysBackLanguage", "FormatPutITGTSysBackLanguage"},
};
// clang-format on

constexpr unsigned int kDeskRouteCount = sizeof(kDeskRoutes) / sizeof(kDeskRoutes[0]);

#endif
