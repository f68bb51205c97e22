// SPDX-License-Identifier: Apache-2.0
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "log_capture.h"
#include "talapi_log.h"

namespace {

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

// Points both logs at fresh files for one test and back at stderr afterwards.
class LogFiles : public ::testing::Test {
  protected:
    void SetUp() override {
        char acDir[] = "/tmp/talapi_logging_XXXXXX";
        ASSERT_NE(mkdtemp(acDir), nullptr);
        m_dir = acDir;
        ASSERT_EQ(VW_SetDebugLogFile((m_dir / "debug.log").c_str()), 0);
        ASSERT_EQ(VW_SetLanguageLogFile((m_dir / "language.log").c_str()), 0);
    }
    void TearDown() override {
        VW_SetDebugLogFile(nullptr);
        VW_SetLanguageLogFile(nullptr);
        fs::remove_all(m_dir);
    }
    // The file's lines without their time stamps; a missing stamp or newline is marked.
    Texts Lines(const char *pcName) const {
        const std::string kShape = "dddd-dd-dd dd:dd:dd.ddd ";
        Texts lines;
        std::ifstream in(m_dir / pcName);
        for (std::string line; std::getline(in, line);) {
            bool stamped = line.size() >= kShape.size();
            for (size_t i = 0; stamped && i < kShape.size(); ++i) {
                stamped = kShape[i] == 'd' ? isdigit(line[i]) != 0 : line[i] == kShape[i];
            }
            lines.push_back((stamped ? line.substr(kShape.size()) : "unstamped " + line) +
                            (in.eof() ? " <no newline>" : ""));
        }
        return lines;
    }
    fs::path m_dir;
};

TEST_F(LogFiles, DebugLineIsFilteredByTheFlagArgumentAndShowsBaseNameLineAndError) {
    EXPECT_EQ(g_enDebugFlag, VW_DEBUG_FAILURES);
    g_enDebugFlag = VW_DEBUG_ALL;  // the argument decides, not the global
    for (int flag : {VW_DEBUG_ALL, VW_DEBUG_WARNINGS, VW_DEBUG_FAILURES, VW_DEBUG_OFF}) {
        for (int level = VW_LOG_TRACE; level <= VW_LOG_ERROR; ++level) {
            EXPECT_EQ(VW_WriteLog(4, level, flag, 0, "f.cpp", 1, "flag %d", flag), 0);
        }
    }
    g_enDebugFlag = VW_DEBUG_FAILURES;
    VW_WriteLog(4, 3, 3, 0, "/src/a/m.cpp", 120, "m");
    VW_WriteLog(4, 3, 3, ENOENT, "/a/b.cpp", 121, "e");
    EXPECT_EQ(Lines("debug.log"),
              (Texts{"L0 M4 f.cpp:1 flag 0", "L1 M4 f.cpp:1 flag 0", "L2 M4 f.cpp:1 flag 0",
                     "L3 M4 f.cpp:1 flag 0", "L2 M4 f.cpp:1 flag 2", "L3 M4 f.cpp:1 flag 2",
                     "L3 M4 f.cpp:1 flag 3", "L3 M4 m.cpp:120 m",
                     "L3 M4 b.cpp:121 e: " + std::string(strerror(ENOENT))}));
}

TEST_F(LogFiles, LongMessageIsCutAtACharacterBoundary) {
    std::string message;
    for (int i = 0; i < 2000; ++i) {
        message += "\xe4\xb8\xad";  // one three-byte character
    }
    const std::string heads[] = {"", "a", "ab"};  // every offset of the cut within a character
    for (const std::string &head : heads) {
        VW_WriteLog(4, 3, 3, 0, "f.cpp", 1, "%s%s", head.c_str(), message.c_str());
    }
    Texts lines = Lines("debug.log");
    ASSERT_EQ(lines.size(), 3U);
    for (size_t i = 0; i < lines.size(); ++i) {
        const std::string prefix = "L3 M4 f.cpp:1 " + heads[i];
        const size_t kept = (lines[i].size() - prefix.size() - 3) / 3 * 3;
        EXPECT_GT(kept, 1500U);
        EXPECT_EQ(lines[i], prefix + message.substr(0, kept) + "...");
    }
}

TEST_F(LogFiles, LanguageLineHoldsBothTextsAndSinksTakeEveryCallInstead) {
    EXPECT_EQ(VW_WriteLanguageLog(2, 4, "%s[%s:%llu] set language %d", "%s[%s:%llu] 设置语言 %d",
                                  "admin", "10.0.0.1", 8080ULL, 1),
              0);
    {
        LogCapture capture;
        VW_WriteLog(4, VW_LOG_TRACE, VW_DEBUG_OFF, EIO, "/p/m.cpp", 9, "[TALAPI]:Enter %s", "Run");
        VW_WriteLanguageLog(1, 4, "en %d", "中 %d", 5);
        EXPECT_EQ(
            capture.DebugEntries(),
            (std::vector<DebugLogEntry>{{4, 0, 4, EIO, "/p/m.cpp", 9, "[TALAPI]:Enter Run"}}));
        EXPECT_EQ(capture.LanguageEntries(),
                  (std::vector<LanguageLogEntry>{{1, 4, "en 5", "中 5"}}));
    }
    VW_WriteLog(4, 3, 3, 0, "f.cpp", 1, "after");
    EXPECT_EQ(Lines("language.log"),
              Texts{"N2 M4 admin[10.0.0.1:8080] set language 1 | admin[10.0.0.1:8080] 设置语言 1"});
    EXPECT_EQ(Lines("debug.log"), Texts{"L3 M4 f.cpp:1 after"});
}

TEST_F(LogFiles, NamingAFileClosesTheOldOneOrKeepsItOnFailure) {
    auto openFiles = [] {
        return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
    };
    const auto before = openFiles();
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(VW_SetDebugLogFile((m_dir / "debug.log").c_str()), 0);
        ASSERT_EQ(VW_SetLanguageLogFile((m_dir / "language.log").c_str()), 0);
    }
    EXPECT_EQ(openFiles(), before);
    EXPECT_EQ(VW_SetDebugLogFile((m_dir / "missing" / "x.log").c_str()), -1);
    VW_WriteLog(4, 3, 3, 0, "f.cpp", 1, "kept");
    EXPECT_EQ(Lines("debug.log"), Texts{"L3 M4 f.cpp:1 kept"});
}

// Many long lines at once, to the file and then to a capture: each arrives whole.
TEST_F(LogFiles, ConcurrentWritersProduceWholeLines) {
    const std::string filler(1500, 'x');
    auto writeFromThreads = [&] {
        std::vector<std::thread> threads(8);
        for (std::thread &thread : threads) {
            thread = std::thread([&] {
                for (int i = 0; i < 300; ++i) {
                    VW_WriteLog(4, 3, 3, 0, "f.cpp", 1, "%s", filler.c_str());
                }
            });
        }
        for (std::thread &thread : threads) {
            thread.join();
        }
    };
    writeFromThreads();
    const Texts lines = Lines("debug.log");
    EXPECT_TRUE(lines == Texts(2400, "L3 M4 f.cpp:1 " + filler)) << lines.size() << " lines";
    LogCapture capture;
    writeFromThreads();
    EXPECT_EQ(capture.DebugEntries().size(), 2400U);
}

}  // namespace
