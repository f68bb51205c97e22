// SPDX-License-Identifier: Apache-2.0
// Captures the debug and operation logs through the logging library's sinks, for exact
// assertions. One capture at a time (a second one aborts); while active, no file is written.
#ifndef TALAPI_TESTS_LOG_CAPTURE_H
#define TALAPI_TESTS_LOG_CAPTURE_H

#include <ostream>
#include <string>
#include <tuple>
#include <vector>

#include "talapi_log.h"

// One VW_WriteLog call, unfiltered; file is the path as passed ("" for null).
struct DebugLogEntry {
    int module, level, debugFlag, sysErr;
    std::string file;
    int line;
    std::string message;
    auto Tie() const { return std::tie(module, level, debugFlag, sysErr, file, line, message); }
    bool operator==(const DebugLogEntry &o) const { return Tie() == o.Tie(); }
    friend std::ostream &operator<<(std::ostream &os, const DebugLogEntry &e) {
        return os << "{module " << e.module << ", level " << e.level << ", flag " << e.debugFlag
                  << ", sysErr " << e.sysErr << ", " << e.file << ":" << e.line << ", \""
                  << e.message << "\"}";
    }
};

// One VW_WriteLanguageLog call, both texts formatted.
struct LanguageLogEntry {
    int logNo, module;
    std::string english, chinese;
    auto Tie() const { return std::tie(logNo, module, english, chinese); }
    bool operator==(const LanguageLogEntry &o) const { return Tie() == o.Tie(); }
    friend std::ostream &operator<<(std::ostream &os, const LanguageLogEntry &e) {
        return os << "{logNo " << e.logNo << ", module " << e.module << ", \"" << e.english
                  << "\", \"" << e.chinese << "\"}";
    }
};

class LogCapture {
  public:
    LogCapture();
    ~LogCapture();  // no sink call is made after it returns
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    // Copies of what was captured so far, in call order.
    std::vector<DebugLogEntry> DebugEntries() const;
    std::vector<LanguageLogEntry> LanguageEntries() const;
    void Clear();

  private:
    std::vector<DebugLogEntry> m_debug;
    std::vector<LanguageLogEntry> m_language;
};

#endif
