// SPDX-License-Identifier: Apache-2.0
// Captures the debug and operation logs through the logging library's sinks, for exact
// assertions, with views for the business code's lines. One capture at a time (a second one
// aborts); while one is active, no file is written.
#ifndef TALAPI_TESTS_LOG_CAPTURE_H
#define TALAPI_TESTS_LOG_CAPTURE_H

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>
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
    LogCapture() {
        {
            std::lock_guard<std::mutex> lock(s_mutex);
            if (s_pActive != nullptr) {
                std::abort();  // another capture is active
            }
            s_pActive = this;
        }
        // Outside the mutex: the library takes its own lock here, and holds it around the sinks.
        VW_SetLogSinks(
            [](const VW_DEBUG_LOG_S *p) {
                std::lock_guard<std::mutex> lock(s_mutex);
                s_pActive->m_debug.push_back({p->iModule, p->iLevel, p->iDebugFlag, p->iSysErr,
                                              p->pcFile ? p->pcFile : "", p->iLine, p->pcMessage});
            },
            [](const VW_LANGUAGE_LOG_S *p) {
                std::lock_guard<std::mutex> lock(s_mutex);
                s_pActive->m_language.push_back(
                    {p->iLogNo, p->iModule, p->pcEnglish, p->pcChinese});
            });
    }
    ~LogCapture() {  // no sink call is made after it returns
        VW_SetLogSinks(nullptr, nullptr);
        std::lock_guard<std::mutex> lock(s_mutex);
        s_pActive = nullptr;
    }
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    // Copies of what was captured so far, in call order.
    std::vector<DebugLogEntry> DebugEntries() const {
        std::lock_guard<std::mutex> lock(s_mutex);
        return m_debug;
    }
    std::vector<LanguageLogEntry> LanguageEntries() const {
        std::lock_guard<std::mutex> lock(s_mutex);
        return m_language;
    }
    void Clear() {
        std::lock_guard<std::mutex> lock(s_mutex);
        m_debug.clear(), m_language.clear();
    }

  private:
    static inline std::mutex s_mutex;  // guards s_pActive and the entries of the active capture
    static inline LogCapture *s_pActive = nullptr;
    std::vector<DebugLogEntry> m_debug;
    std::vector<LanguageLogEntry> m_language;
};

// One debug line of the business code: level, source file without folder and extension, text.
struct LogLine {
    int level;
    std::string source, message;
    bool operator==(const LogLine &o) const {
        return std::tie(level, source, message) == std::tie(o.level, o.source, o.message);
    }
};

// printf into a string, for expected messages that carry pointers or numbers.
__attribute__((format(printf, 1, 2))) inline std::string Printf(const char *pcFormat, ...) {
    char text[1024];
    va_list args;
    va_start(args, pcFormat);
    vsnprintf(text, sizeof(text), pcFormat, args);
    va_end(args);
    return text;
}

// The lines written by the module and the shared business header, in order; the host
// libraries' own lines are left out. Every such call must follow the logging convention.
inline std::vector<LogLine> BusinessLines(const LogCapture &capture) {
    std::vector<LogLine> lines;
    for (const DebugLogEntry &entry : capture.DebugEntries()) {
        std::string source = entry.file.substr(entry.file.find_last_of('/') + 1);
        source = source.substr(0, source.find('.'));
        if (source != "orbapi_itgt_module" && source != "talapi_business_common") {
            continue;
        }
        EXPECT_EQ(entry.module, 4) << entry.message;
        EXPECT_EQ(entry.debugFlag, static_cast<int>(g_enDebugFlag)) << entry.message;
        EXPECT_EQ(entry.sysErr, 0) << entry.message;
        EXPECT_GT(entry.line, 0) << entry.message;
        EXPECT_EQ(entry.message.rfind("[TALAPI]:", 0), 0u) << entry.message;
        lines.push_back({entry.level, source, entry.message});
    }
    return lines;
}

#endif
