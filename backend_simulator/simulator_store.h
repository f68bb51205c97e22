// SPDX-License-Identifier: Apache-2.0
// The simulated daemon's state and its command handling. Settings records live in memory behind
// one mutex and are saved whole to the state file after every accepted write.
#ifndef BACKEND_SIMULATOR_STORE_H
#define BACKEND_SIMULATOR_STORE_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

// Where the verification command finds the picture to check (redirected like peer paths).
constexpr const char *SIM_SECURITY_PICTURE_PATH = "/tmp/securityCode.jpg";

// One line on stderr, prefixed with the program's name.
void SimLog(const char *pcFormat, ...) __attribute__((format(printf, 1, 2)));

// A settings record is found by its command, channel and (frame OSD only) overlay type.
struct SimRecordKey {
    uint32_t uiCmd;
    uint64_t ullChannel;
    uint32_t uiOverlay;
    bool operator<(const SimRecordKey &stOther) const;
};
using SimRecords = std::map<SimRecordKey, std::vector<unsigned char>>;

class SimulatorStore {
  public:
    // strStatePath: the state file, or empty to keep the settings in memory only.
    // strPicturePath: the resolved path of the picture that command 20101 verifies. bSync: each
    // saved state file reaches the disk before a write is answered.
    SimulatorStore(std::string strStatePath, std::string strPicturePath, bool bSync = true);

    // Loads the state file; a missing one is created from the defaults, a corrupt one is kept
    // as FILE.corrupt and replaced by the defaults. False (with a reason) when the state cannot
    // be read or saved at all.
    bool Open(std::string &strError);

    // Serves one command: returns the reply's Result and fills vecPayload (empty on failure).
    int Serve(uint32_t uiCmd, const unsigned char *pucBody, std::size_t uBodyLen,
              std::vector<unsigned char> &vecPayload);

  private:
    int Read(const SimRecordKey &stKey, std::vector<unsigned char> &vecPayload);
    int Write(const SimRecordKey &stKey, const unsigned char *pucRecord, std::size_t uLen);
    int Verify(const unsigned char *pucBody, std::vector<unsigned char> &vecPayload) const;

    const std::string m_strStatePath;
    const std::string m_strPicturePath;
    const bool m_bSync;
    std::mutex m_mtx;  // guards m_mapRecords and the state file
    SimRecords m_mapRecords;
};

#endif
