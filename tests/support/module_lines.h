// SPDX-License-Identifier: Apache-2.0
// Views of captured logs for asserting a module's exact messages and events.
#ifndef TESTS_SUPPORT_MODULE_LINES_H
#define TESTS_SUPPORT_MODULE_LINES_H

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <ostream>
#include <string>
#include <vector>

#include "log_capture.h"

// One debug line of the business code: level, source file without folder and extension, text.
struct LogLine {
    int level;
    std::string source;
    std::string message;
    bool operator==(const LogLine &other) const {
        return level == other.level && source == other.source && message == other.message;
    }
};
inline std::ostream &operator<<(std::ostream &os, const LogLine &line) {
    return os << "{" << line.level << ", " << line.source << ", \"" << line.message << "\"}";
}

// printf into a string, for expected messages that carry pointers or numbers.
inline std::string Printf(const char *pcFormat, ...) __attribute__((format(printf, 1, 2)));
inline std::string Printf(const char *pcFormat, ...) {
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

// The operation-log event the module writes for one request: the same pair, logs 2 then 1.
inline std::vector<LanguageLogEntry> EventTwice(const std::string &english,
                                                const std::string &chinese) {
    return {{2, 4, english, chinese}, {1, 4, english, chinese}};
}

#endif
