// SPDX-License-Identifier: Apache-2.0
// Command handling, default data and the state file of the simulated daemon.
//
// State file (native little-endian integers):
//   head:  u32 magic "VWSS", u32 version 1, u32 entry count, u32 FNV-1a of every byte after it
//   entry: u32 command, u32 overlay type (0 unless frame OSD), u64 channel, u32 length, u32 zero,
//          then `length` bytes of the record, whose own key fields match the entry's
// A file is taken only when every entry names a known record, with the record's exact length,
// once, and the file ends right after the last entry; anything else is corrupt.
#include "simulator_store.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <set>
#include <tuple>

#include "simulator_records.h"
#include "talapi_types.h"

void SimLog(const char *pcFormat, ...) {
    char szLine[512];
    va_list args;
    va_start(args, pcFormat);
    std::vsnprintf(szLine, sizeof(szLine), pcFormat, args);
    va_end(args);
    std::fprintf(stderr, "backend_simulator: %s\n", szLine);
}

bool SimRecordKey::operator<(const SimRecordKey &stOther) const {
    return std::tie(uiCmd, ullChannel, uiOverlay) <
           std::tie(stOther.uiCmd, stOther.ullChannel, stOther.uiOverlay);
}

namespace {

constexpr uint64_t kChannels = 4;  // channels 1..4 exist

// Commands that read and write one settings record each: a read carries a whole command body,
// a write exactly the record. Records hold their channel at 0, frame OSD its overlay type at 8.
struct SettingCmd {
    uint32_t uiCmd;
    std::size_t uLen;
    bool bByOverlay;
};
constexpr SettingCmd kSettingCmds[] = {
    {VW_CMD_SYS_BACK_LANGUAGE, sizeof(VW_SYS_BACK_LANGUAGE_PARAM), false},
    {VW_CMD_VIDEO_VEHICLE_DETECTOR, sizeof(VW_TRAFFIC_FLOW_PARA), false},
    {VW_CMD_TRAFFIC_DOME_PIC_OSD, sizeof(VW_PIC_OSD_PARA_S), true},
    {VW_CMD_VLPR_PIC_OSD, sizeof(VW_PIC_OSD_PARA_S), true},
};

const SettingCmd *FindSetting(uint32_t uiCmd) {
    for (const SettingCmd &stCmd : kSettingCmds) {
        if (stCmd.uiCmd == uiCmd) {
            return &stCmd;
        }
    }
    return nullptr;
}

// The key a read body or a record names (both hold the key fields at the same places).
SimRecordKey KeyOf(const SettingCmd &stCmd, const unsigned char *pucData) {
    SimRecordKey stKey{stCmd.uiCmd, 0, 0};
    std::memcpy(&stKey.ullChannel, pucData, sizeof(stKey.ullChannel));
    if (stCmd.bByOverlay) {
        std::memcpy(&stKey.uiOverlay, pucData + 8, sizeof(stKey.uiOverlay));
    }
    return stKey;
}

template <typename T>
std::vector<unsigned char> Bytes(const T &stRecord) {
    const unsigned char *pucData = reinterpret_cast<const unsigned char *>(&stRecord);
    return std::vector<unsigned char>(pucData, pucData + sizeof(T));
}

// ---- Default data ----

constexpr SYS_BACK_LANGUAGE_E kLanguages[kChannels] = {
    SYS_LANGUAGE_CHINESE, SYS_LANGUAGE_ENGLISH, SYS_LANGUAGE_CHINESE_TW, SYS_LANGUAGE_ENGLISH};

// The items of each business: the first 4, 5 or 6 for the overlay types 0, 1 and 2.
struct OsdItem {
    PIC_OSD_ITEM_E enType;
    const char *pcPrefix;
};
constexpr OsdItem kDomeItems[] = {{PIC_OSD_TIME, "Time:"},        {PIC_OSD_DEV_ID, "Device:"},
                                  {PIC_OSD_ROAD_ID, "Road:"},     {PIC_OSD_DIR, "Direction:"},
                                  {PIC_OSD_LOCATE_DESC, "Site:"}, {PIC_OSD_CUSTOM, ""}};
constexpr OsdItem kVlprItems[] = {{PIC_OSD_TIME, "Time:"},         {PIC_OSD_PLATE_ID, "Plate:"},
                                  {PIC_OSD_PLATE_COLOR, "Color:"}, {PIC_OSD_VEHICLE_TYPE, "Type:"},
                                  {PIC_OSD_SPEED, "Speed:"},       {PIC_OSD_LANE_ID, "Lane:"}};

// The free-text items of each business; a text may name the channel once.
struct OsdText {
    CUSTOM_OSD_PARA_S VW_PIC_OSD_PARA_S::*pstItem;
    const char *pcDome;
    const char *pcVlpr;
};
constexpr OsdText kOsdTexts[] = {
    {&VW_PIC_OSD_PARA_S::roadIdOSD, "Road 10%llu", "Road 20%llu"},
    {&VW_PIC_OSD_PARA_S::devIdOSD, "DOME-%04llu", "VLPR-%04llu"},
    {&VW_PIC_OSD_PARA_S::devIdOSD1, "", "VLPR-B%04llu"},
    {&VW_PIC_OSD_PARA_S::dirIdOSD, "D%llu", ""},
    {&VW_PIC_OSD_PARA_S::dirOSD, "East to West", "North to South"},
    {&VW_PIC_OSD_PARA_S::customOSD, "Dome camera %llu", "Plate capture"},
    {&VW_PIC_OSD_PARA_S::locateOSD, "Ring Road North, gate %llu", "Toll station, lane %llu"},
    {&VW_PIC_OSD_PARA_S::monitorOSD, "Monitoring point %llu", ""},
    {&VW_PIC_OSD_PARA_S::laneOSD, "", "Lane %llu"},
    {&VW_PIC_OSD_PARA_S::laneDirOSD, "", "Straight ahead"},
};

VW_PIC_OSD_PARA_S DefaultFrameOsd(bool bVlpr, uint64_t ullChannel, uint32_t uiOverlay) {
    VW_PIC_OSD_PARA_S st{};
    st.channelId = ullChannel;
    st.overlayType = static_cast<OVERLAY_PIC_TYPE_E>(uiOverlay);
    PIC_OSD_INFO_S &stInfo = st.picOSDInfo;
    stInfo.picOSDNum = 4 + uiOverlay;
    for (uint32_t i = 0; i < stInfo.picOSDNum; ++i) {
        const OsdItem &stItem = bVlpr ? kVlprItems[i] : kDomeItems[i];
        PIC_OSD_DETAILS_S &stDetail = stInfo.picOsdDetail[i];
        stInfo.picOSDType[i] = stItem.enType;
        stInfo.spaceNum[i] = bVlpr ? 2 : 1;
        stInfo.warpNum[i] = i % 2;
        stDetail.prefixEnable = stItem.pcPrefix[0] != '\0';
        std::snprintf(stDetail.prefixContent, sizeof(stDetail.prefixContent), "%s",
                      stItem.pcPrefix);
    }
    stInfo.osdLocation = bVlpr ? OSD_LOCATION_BOTTOM : OSD_LOCATION_TOP;
    stInfo.fontSize = bVlpr ? FONT_SIZE_LARGE : FONT_SIZE_MEDIUM;
    stInfo.fgColor = bVlpr ? 0xFFFF00u : 0xFFFFFFu;
    stInfo.fgAlpha = 255;
    stInfo.bgAlpha = bVlpr ? 0 : 128;
    stInfo.securityCodeInfo.securityCodePos =
        bVlpr ? SECURITY_CODE_BOTTOM_RIGHT : SECURITY_CODE_TOP_RIGHT;
    st.timeOSD = {bVlpr ? 1 : 0, bVlpr ? OSD_YMD_DASH : OSD_YMD_CHINESE};
    for (const OsdText &stText : kOsdTexts) {
        CUSTOM_OSD_PARA_S &stItem = st.*stText.pstItem;
        std::snprintf(stItem.osdContent, sizeof(stItem.osdContent),
                      bVlpr ? stText.pcVlpr : stText.pcDome,
                      static_cast<unsigned long long>(ullChannel));
    }
    st.dirOSDParaEn = bVlpr ? 0 : 1;
    st.enableLiveOSD = bVlpr ? 0 : 1;
    return st;
}

// Every settings record that exists, with its first value.
SimRecords DefaultRecords() {
    SimRecords mapOut;
    for (uint64_t ullCh = 1; ullCh <= kChannels; ++ullCh) {
        const int iCh = static_cast<int>(ullCh);
        const VW_SYS_BACK_LANGUAGE_PARAM stLanguage{ullCh, kLanguages[iCh - 1], {}};
        mapOut[{VW_CMD_SYS_BACK_LANGUAGE, ullCh, 0}] = Bytes(stLanguage);
        const VW_RECT_INFO stRect{static_cast<int16_t>(80 * iCh), 360,
                                  static_cast<int16_t>(1920 - 160 * iCh), 540};
        const VW_TRAFFIC_FLOW_PARA stDetector{ullCh, iCh % 2, stRect, {}};
        mapOut[{VW_CMD_VIDEO_VEHICLE_DETECTOR, ullCh, 0}] = Bytes(stDetector);
        for (uint32_t uiOverlay = 0; uiOverlay < OVERLAY_PIC_TYPE_NUM; ++uiOverlay) {
            mapOut[{VW_CMD_TRAFFIC_DOME_PIC_OSD, ullCh, uiOverlay}] =
                Bytes(DefaultFrameOsd(false, ullCh, uiOverlay));
            mapOut[{VW_CMD_VLPR_PIC_OSD, ullCh, uiOverlay}] =
                Bytes(DefaultFrameOsd(true, ullCh, uiOverlay));
        }
    }
    return mapOut;
}

ITGT_ABILITY_S Ability() {
    ITGT_ABILITY_S st{};
    st.audio = st.motionDetection = st.videoAnalysis = st.faceDetection = st.humanCount = 1;
    st.vlpr = st.parkingDetection = st.trafficStatistics = st.its = st.itsEpolice = 1;
    st.trafficEvent = 1;
    return st;
}

// Which item types each business overlays, on which picture kinds (original, synthesis, feature).
ITGT_OSD_ABILITY_S OsdAbility() {
    ITGT_OSD_ABILITY_S st{};
    const auto offer = [](PIC_OSD_ABILITY_S &stBusiness, PIC_OSD_KIND_S stKinds,
                          std::initializer_list<PIC_OSD_ITEM_E> lstItems) {
        for (PIC_OSD_ITEM_E enItem : lstItems) {
            stBusiness.astItem[enItem] = stKinds;
        }
    };
    offer(st.TrafficDome, {1, 1, 0},
          {PIC_OSD_TIME, PIC_OSD_PLATE_ID, PIC_OSD_VEHICLE_TYPE, PIC_OSD_LANE_ID,
           PIC_OSD_PLATE_COLOR, PIC_OSD_VEHICLE_COLOR, PIC_OSD_ROAD_ID, PIC_OSD_DEV_ID,
           PIC_OSD_DIR_ID, PIC_OSD_DIR, PIC_OSD_CUSTOM, PIC_OSD_SECURITY_CODE, PIC_OSD_LOCATE_DESC,
           PIC_OSD_MONITOR_INFO, PIC_OSD_SPEED, PIC_OSD_ILLEGAL_DESC, PIC_OSD_LANE_DIR_DESC});
    for (PIC_OSD_KIND_S &stKinds : st.Vlpr.astItem) {
        stKinds = {1, 1, 0};
    }
    offer(st.Vlpr, {1, 1, 1},
          {PIC_OSD_TIME, PIC_OSD_PLATE_ID, PIC_OSD_PLATE_COLOR, PIC_OSD_VEHICLE_TYPE});
    offer(st.Vhd, {1, 1, 0},
          {PIC_OSD_DEV_ID, PIC_OSD_VEHICLE_TYPE, PIC_OSD_VEHICLE_COLOR, PIC_OSD_PER_BRAND_TYPE,
           PIC_OSD_SUB_BRAND_TYPE, PIC_OSD_YEAR_BRAND_TYPE});
    offer(st.Face, {1, 0, 0}, {PIC_OSD_DEV_ID, PIC_OSD_LOCATE_DESC, PIC_OSD_MONITOR_INFO});
    offer(st.Vhd, {1, 1, 1}, {PIC_OSD_TIME});
    offer(st.Face, {1, 0, 1}, {PIC_OSD_TIME});
    return st;
}

// ---- State file ----

constexpr uint32_t kStateMagic = 0x53535756u;  // "VWSS"
constexpr uint32_t kStateVersion = 1;
constexpr std::size_t kStateMaxSize = 4u << 20;  // far above what the records need

struct StateHead {
    uint32_t uiMagic, uiVersion, uiEntries, uiChecksum;
};
struct StateEntry {
    uint32_t uiCmd, uiOverlay;
    uint64_t ullChannel;
    uint32_t uiLen, uiReserved;
};
static_assert(sizeof(StateHead) == 16 && sizeof(StateEntry) == 24, "state file layout");

uint32_t Fnv1a(const unsigned char *pucData, std::size_t uLen) {
    uint32_t uiHash = 2166136261u;
    for (std::size_t i = 0; i < uLen; ++i) {
        uiHash = (uiHash ^ pucData[i]) * 16777619u;
    }
    return uiHash;
}

// Overwrites records of mapOut (which holds every known key) with the file's; false, with mapOut
// partly overwritten, when the file is not a valid state file.
bool LoadState(const std::vector<unsigned char> &vecFile, SimRecords &mapOut) {
    const unsigned char *pucFile = vecFile.data();
    const std::size_t uSize = vecFile.size();
    StateHead stHead{};
    if (uSize < sizeof(stHead)) {
        return false;
    }
    std::memcpy(&stHead, pucFile, sizeof(stHead));
    if (stHead.uiMagic != kStateMagic || stHead.uiVersion != kStateVersion ||
        stHead.uiChecksum != Fnv1a(pucFile + sizeof(stHead), uSize - sizeof(stHead))) {
        return false;
    }
    std::set<SimRecordKey> setSeen;
    std::size_t uPos = sizeof(stHead);
    for (uint32_t i = 0; i < stHead.uiEntries; ++i) {
        StateEntry stEntry{};
        if (uSize - uPos < sizeof(stEntry)) {
            return false;
        }
        std::memcpy(&stEntry, pucFile + uPos, sizeof(stEntry));
        uPos += sizeof(stEntry);
        const SettingCmd *pstCmd = FindSetting(stEntry.uiCmd);
        if (pstCmd == nullptr || stEntry.uiLen != pstCmd->uLen || stEntry.uiReserved != 0 ||
            uSize - uPos < stEntry.uiLen) {
            return false;
        }
        const unsigned char *pucRecord = pucFile + uPos;
        uPos += stEntry.uiLen;
        const SimRecordKey stKey = KeyOf(*pstCmd, pucRecord);
        const auto it = mapOut.find(stKey);
        if (stKey.ullChannel != stEntry.ullChannel || stKey.uiOverlay != stEntry.uiOverlay ||
            it == mapOut.end() || !setSeen.insert(stKey).second) {
            return false;
        }
        it->second.assign(pucRecord, pucRecord + stEntry.uiLen);
    }
    return uPos == uSize;
}

// Replaces the state file atomically: a temporary file in the same directory, renamed over it,
// so that a killed simulator leaves either the old or the new file. With bSync the file and then
// the directory are synced as well, so that the same holds after a power cut.
bool SaveState(const std::string &strPath, const SimRecords &mapRecords, bool bSync) {
    std::vector<unsigned char> vecFile(sizeof(StateHead));
    for (const auto &entry : mapRecords) {
        const StateEntry stEntry{entry.first.uiCmd, entry.first.uiOverlay, entry.first.ullChannel,
                                 static_cast<uint32_t>(entry.second.size()), 0};
        const std::vector<unsigned char> vecEntry = Bytes(stEntry);
        vecFile.insert(vecFile.end(), vecEntry.begin(), vecEntry.end());
        vecFile.insert(vecFile.end(), entry.second.begin(), entry.second.end());
    }
    const StateHead stHead{
        kStateMagic, kStateVersion, static_cast<uint32_t>(mapRecords.size()),
        Fnv1a(vecFile.data() + sizeof(StateHead), vecFile.size() - sizeof(StateHead))};
    std::memcpy(vecFile.data(), &stHead, sizeof(stHead));

    std::string strTemp = strPath + ".tmp.XXXXXX";
    const int iFd = mkostemp(&strTemp[0], O_CLOEXEC);
    FILE *pstFile = iFd < 0 ? nullptr : fdopen(iFd, "wb");
    bool bOk = pstFile != nullptr &&
               std::fwrite(vecFile.data(), 1, vecFile.size(), pstFile) == vecFile.size() &&
               std::fflush(pstFile) == 0 && (!bSync || fsync(iFd) == 0);
    if (pstFile != nullptr) {
        bOk = std::fclose(pstFile) == 0 && bOk;
    } else if (iFd >= 0) {
        close(iFd);
    }
    if (!bOk || rename(strTemp.c_str(), strPath.c_str()) != 0) {
        SimLog("cannot save state to %s: %s", strPath.c_str(), std::strerror(errno));
        unlink(strTemp.c_str());
        return false;
    }
    if (!bSync) {
        return true;
    }
    const std::size_t uSlash = strPath.rfind('/');
    const std::string strDir = uSlash == std::string::npos ? "." : strPath.substr(0, uSlash + 1);
    const int iDirFd = open(strDir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (iDirFd < 0 || fsync(iDirFd) != 0) {
        SimLog("cannot sync directory %s: %s", strDir.c_str(), std::strerror(errno));
    }
    if (iDirFd >= 0) {
        close(iDirFd);
    }
    return true;
}

}  // namespace

SimulatorStore::SimulatorStore(std::string strStatePath, std::string strPicturePath, bool bSync)
    : m_strStatePath(std::move(strStatePath)),
      m_strPicturePath(std::move(strPicturePath)),
      m_bSync(bSync),
      m_mapRecords(DefaultRecords()) {}

bool SimulatorStore::Open(std::string &strError) {
    std::lock_guard<std::mutex> lock(m_mtx);
    if (m_strStatePath.empty()) {
        return true;  // in memory only: the defaults
    }
    FILE *pstFile = std::fopen(m_strStatePath.c_str(), "rbe");
    if (pstFile == nullptr && errno != ENOENT) {
        strError = "cannot read state file " + m_strStatePath + ": " + std::strerror(errno);
        return false;
    }
    if (pstFile != nullptr) {
        // One byte more than a state file may hold, so that an oversized file reads as corrupt.
        std::vector<unsigned char> vecFile(kStateMaxSize + 1);
        vecFile.resize(std::fread(vecFile.data(), 1, vecFile.size(), pstFile));
        const bool bReadFailed = std::ferror(pstFile) != 0;
        std::fclose(pstFile);
        if (bReadFailed) {
            strError = "cannot read state file " + m_strStatePath;
            return false;
        }
        SimRecords mapLoaded = m_mapRecords;
        if (vecFile.size() <= kStateMaxSize && LoadState(vecFile, mapLoaded)) {
            m_mapRecords.swap(mapLoaded);
            return true;
        }
        const std::string strKept = m_strStatePath + ".corrupt";
        const bool bKept = rename(m_strStatePath.c_str(), strKept.c_str()) == 0;
        SimLog("state file %s is corrupt (%s%s); starting from defaults", m_strStatePath.c_str(),
               bKept ? "kept as " : "cannot keep it: ",
               bKept ? strKept.c_str() : std::strerror(errno));
    }
    if (!SaveState(m_strStatePath, m_mapRecords, m_bSync)) {
        strError = "cannot create state file " + m_strStatePath;
        return false;
    }
    return true;
}

int SimulatorStore::Serve(uint32_t uiCmd, const unsigned char *pucBody, std::size_t uBodyLen,
                          std::vector<unsigned char> &vecPayload) {
    vecPayload.clear();
    if (const SettingCmd *pstCmd = FindSetting(uiCmd)) {
        if (uBodyLen == VW_CMD_BODY_SIZE) {
            return Read(KeyOf(*pstCmd, pucBody), vecPayload);
        }
        return uBodyLen == pstCmd->uLen ? Write(KeyOf(*pstCmd, pucBody), pucBody, uBodyLen)
                                        : VW_RESULT_PARAM_ERR;
    }
    if (uiCmd != VW_CMD_ITGT_CAPABILITY && uiCmd != VW_CMD_ITGT_OSD_CAPABILITY &&
        uiCmd != VW_CMD_SECURITY_CODE_VERIFY) {
        return VW_RESULT_NOT_SUPPORT;
    }
    if (uBodyLen != VW_CMD_BODY_SIZE) {
        return VW_RESULT_PARAM_ERR;
    }
    if (uiCmd == VW_CMD_SECURITY_CODE_VERIFY) {
        return Verify(pucBody, vecPayload);
    }
    vecPayload = uiCmd == VW_CMD_ITGT_CAPABILITY ? Bytes(Ability()) : Bytes(OsdAbility());
    return VW_RESULT_OK;
}

int SimulatorStore::Read(const SimRecordKey &stKey, std::vector<unsigned char> &vecPayload) {
    std::lock_guard<std::mutex> lock(m_mtx);
    const auto it = m_mapRecords.find(stKey);
    if (it == m_mapRecords.end()) {
        return VW_RESULT_PARAM_ERR;
    }
    vecPayload = it->second;
    return VW_RESULT_OK;
}

// Replaces the record that the written record names; undone when it cannot be saved.
int SimulatorStore::Write(const SimRecordKey &stKey, const unsigned char *pucRecord,
                          std::size_t uLen) {
    std::lock_guard<std::mutex> lock(m_mtx);
    const auto it = m_mapRecords.find(stKey);
    if (it == m_mapRecords.end()) {
        return VW_RESULT_PARAM_ERR;
    }
    std::vector<unsigned char> vecOld(pucRecord, pucRecord + uLen);
    it->second.swap(vecOld);
    if (!m_strStatePath.empty() && !SaveState(m_strStatePath, m_mapRecords, m_bSync)) {
        it->second.swap(vecOld);
        return VW_RESULT_FAIL;
    }
    return VW_RESULT_OK;
}

// Verdict on the picture at the fixed path: 4502 when it is a whole JPEG (starts FF D8, ends with
// the end-of-image marker FF D9), 4501 when it is there but is not (truncated or altered); no
// verdict (Result 4) when it is missing or unreadable. The channel is echoed from the body.
int SimulatorStore::Verify(const unsigned char *pucBody,
                           std::vector<unsigned char> &vecPayload) const {
    const int iFd = open(m_strPicturePath.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (iFd < 0) {
        return VW_RESULT_PARAM_ERR;
    }
    struct stat stStat {};
    unsigned char aucHead[2] = {0, 0};
    unsigned char aucTail[2] = {0, 0};
    bool bRead = fstat(iFd, &stStat) == 0 && S_ISREG(stStat.st_mode);
    if (bRead && stStat.st_size >= 4) {
        bRead = pread(iFd, aucHead, 2, 0) == 2 && pread(iFd, aucTail, 2, stStat.st_size - 2) == 2;
    }
    close(iFd);
    if (!bRead) {
        return VW_RESULT_PARAM_ERR;
    }
    const bool bPassed =
        aucHead[0] == 0xFF && aucHead[1] == 0xD8 && aucTail[0] == 0xFF && aucTail[1] == 0xD9;
    VERIFY_RESULT_S stResult{};
    std::memcpy(&stResult.channelId, pucBody, sizeof(stResult.channelId));
    stResult.verifyResult = bPassed ? SECURITY_CODE_PASSED : SECURITY_CODE_FAILED;
    vecPayload = Bytes(stResult);
    return VW_RESULT_OK;
}
