#include <algorithm>
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
    // The file's lines, each without its "2026-11-22 20:03:04.123 " stamp (or marked when it has
    // none); a last line without its newline is marked too.
    std::vector<std::string> Lines(const char *pcName) const {
        std::vector<std::string> lines;
        std::ifstream in(m_dir / pcName);
        for (std::string line; std::getline(in, line);) {
            const char kShape[] = "dddd-dd-dd dd:dd:dd.ddd ";
            bool stamped = line.size() >= sizeof(kShape) - 1;
            for (size_t i = 0; stamped && i < sizeof(kShape) - 1; ++i) {
                stamped = kShape[i] == 'd' ? isdigit(line[i]) != 0 : line[i] == kShape[i];
            }
            lines.push_back((stamped ? line.substr(sizeof(kShape) - 1) : "unstamped " + line) +
                            (in.eof() ? " <no newline>" : ""));
        }
        return lines;
    }
    fs::path m_dir;
};

using Texts = std::vector<std::string>;

TEST_F(LogFiles, LineIsWrittenWhenLevelReachesTheFlagArgument) {
    EXPECT_EQ(g_enDebugFlag, VW_DEBUG_FAILURES);
    g_enDebugFlag = VW_DEBUG_ALL;  // the argument decides, not the global
    struct Row {
        int flag;
        const char *written;  // per level 0..3: 'y' when the line is written
    } rows[] = {{VW_DEBUG_ALL, "yyyy"},
                {VW_DEBUG_WARNINGS, "--yy"},
                {VW_DEBUG_FAILURES, "---y"},
                {VW_DEBUG_OFF, "----"}};
    Texts expected;
    for (const Row &row : rows) {
        for (int level = VW_LOG_TRACE; level <= VW_LOG_ERROR; ++level) {
            EXPECT_EQ(VW_WriteLog(4, level, row.flag, 0, "f.cpp", 1, "%d/%d", row.flag, level), 0);
            if (row.written[level] == 'y') {
                expected.push_back("L" + std::to_string(level) + " M4 f.cpp:1 " +
                                   std::to_string(row.flag) + "/" + std::to_string(level));
            }
        }
    }
    g_enDebugFlag = VW_DEBUG_FAILURES;
    EXPECT_EQ(Lines("debug.log"), expected);
}

TEST_F(LogFiles, LineShowsLevelModuleBaseNameLineAndError) {
    struct Row {
        const char *file;
        int sysErr;
        std::string line;
    } rows[] = {
        {"/src/a/orbapi_itgt_module.cpp", 0, "L3 M4 orbapi_itgt_module.cpp:120 [TALAPI]:x 7"},
        {"talapi_business_common.h", 0, "L3 M4 talapi_business_common.h:120 [TALAPI]:x 7"},
        {"/a/b.cpp", ENOENT, "L3 M4 b.cpp:120 [TALAPI]:x 7: " + std::string(strerror(ENOENT))},
    };
    Texts expected;
    for (const Row &row : rows) {
        VW_WriteLog(4, 3, VW_DEBUG_FAILURES, row.sysErr, row.file, 120, "[TALAPI]:x %d", 7);
        expected.push_back(row.line);
    }
    EXPECT_EQ(Lines("debug.log"), expected);
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

TEST_F(LogFiles, LanguageLineHoldsBothTexts) {
    EXPECT_EQ(VW_WriteLanguageLog(2, 4, "%s[%s:%llu] set language %d", "%s[%s:%llu] 设置语言 %d",
                                  "admin", "10.0.0.1", 8080ULL, 1),
              0);
    EXPECT_EQ(Lines("language.log"),
              Texts{"N2 M4 admin[10.0.0.1:8080] set language 1 | admin[10.0.0.1:8080] 设置语言 1"});
    EXPECT_EQ(Lines("debug.log"), Texts{});
}

TEST_F(LogFiles, SinksReceiveEveryCallInsteadOfTheFiles) {
    {
        LogCapture capture;
        VW_WriteLog(4, VW_LOG_TRACE, VW_DEBUG_OFF, EIO, "/p/m.cpp", 9, "[TALAPI]:Enter %s", "Run");
        VW_WriteLanguageLog(1, 4, "en %d", "中 %d", 5);
        EXPECT_EQ(
            capture.DebugEntries(),
            (std::vector<DebugLogEntry>{{4, 0, 4, EIO, "/p/m.cpp", 9, "[TALAPI]:Enter Run"}}));
        EXPECT_EQ(capture.LanguageEntries(),
                  (std::vector<LanguageLogEntry>{{1, 4, "en 5", "中 5"}}));
        capture.Clear();
        EXPECT_TRUE(capture.DebugEntries().empty() && capture.LanguageEntries().empty());
    }
    EXPECT_EQ(Lines("language.log"), Texts{});
    VW_WriteLog(4, 3, 3, 0, "f.cpp", 1, "after");
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

TEST_F(LogFiles, ConcurrentWritersProduceWholeLines) {
    constexpr int kThreads = 8;
    constexpr int kLines = 300;
    const std::string filler(1500, 'x');
    auto writeFromThreads = [&] {
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.emplace_back([&, t] {
                for (int i = 0; i < kLines; ++i) {
                    VW_WriteLog(4, 3, 3, 0, "f.cpp", t, "%d %s", i, filler.c_str());
                }
            });
        }
        for (std::thread &thread : threads) {
            thread.join();
        }
    };
    writeFromThreads();
    {
        LogCapture capture;
        writeFromThreads();
        EXPECT_EQ(capture.DebugEntries().size(), size_t{kThreads * kLines});
    }
    Texts expected;
    for (int t = 0; t < kThreads; ++t) {
        for (int i = 0; i < kLines; ++i) {
            expected.push_back("L3 M4 f.cpp:" + std::to_string(t) + " " + std::to_string(i) + " " +
                               filler);
        }
    }
    Texts lines = Lines("debug.log");
    std::sort(lines.begin(), lines.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_TRUE(lines == expected) << lines.size() << " lines";  // too long to print
}

}  // namespace
