// Captures the debug and operation logs of the code under test through the logging library's
// sinks, for exact assertions on texts and levels. One capture may be active at a time; while it
// is, nothing reaches the log files.
#ifndef TALAPI_TESTS_LOG_CAPTURE_H
#define TALAPI_TESTS_LOG_CAPTURE_H

#include <mutex>
#include <ostream>
#include <string>
#include <vector>

#include "talapi_log.h"

// One VW_WriteLog call, unfiltered. file is the path as the caller passed it ("" for null).
struct DebugLogEntry {
    int module;
    int level;
    int debugFlag;
    int sysErr;
    std::string file;
    int line;
    std::string message;
};

// One VW_WriteLanguageLog call, both texts formatted.
struct LanguageLogEntry {
    int logNo;
    int module;
    std::string english;
    std::string chinese;
};

bool operator==(const DebugLogEntry &a, const DebugLogEntry &b);
bool operator==(const LanguageLogEntry &a, const LanguageLogEntry &b);
std::ostream &operator<<(std::ostream &os, const DebugLogEntry &e);
std::ostream &operator<<(std::ostream &os, const LanguageLogEntry &e);

class LogCapture {
  public:
    LogCapture();   // installs the sinks; aborts if another capture is active
    ~LogCapture();  // removes them; no sink call is made after it returns
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    // Copies of what was captured so far, in call order.
    std::vector<DebugLogEntry> DebugEntries() const;
    std::vector<LanguageLogEntry> LanguageEntries() const;
    void Clear();

  private:
    static void OnDebug(const VW_DEBUG_LOG_S *pstLog);
    static void OnLanguage(const VW_LANGUAGE_LOG_S *pstLog);

    mutable std::mutex m_mutex;
    std::vector<DebugLogEntry> m_debug;
    std::vector<LanguageLogEntry> m_language;
};

#endif
