// SPDX-License-Identifier: Apache-2.0
// Security code verification through the module's exported stages, with real files and a fake
// daemon that reads the picture at the fixed path the way the backend does.
#include <filesystem>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "fake_daemon.h"
#include "log_capture.h"
#include "module_lines.h"
#include "orbapi_itgt_module.h"
#include "orbapi_itgt_records.h"
#include "stage_request.h"

namespace {

using Bytes = std::vector<unsigned char>;
constexpr const char *kFixed = "/tmp/securityCode.jpg";
constexpr const char *kUrl = "/api/v1/itgt/security-code-verify";

Bytes ReadFile(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

bool Exists(const std::string &path) {
    return access(path.c_str(), F_OK) == 0;
}

Bytes Jpeg(unsigned char ucTag, std::size_t uSize = 16) {
    Bytes bytes(uSize, ucTag);
    bytes[0] = 0xFF;
    bytes[1] = 0xD8;
    return bytes;
}

class SecurityCodeVerifyTest : public ::testing::Test {
  protected:
    // The daemon's verdict is 1000 plus the third byte of the picture it found at the fixed path,
    // unless one is forced; the channel comes from the command body.
    void Serve(int iForcedVerdict = 0, int iResult = 0) {
        daemon.SetHandler([=](const FakeRequest &request) {
            Bytes picture = ReadFile(kFixed);
            int iVerdict =
                iForcedVerdict != 0 ? iForcedVerdict : 1000 + (picture.size() > 2 ? picture[2] : 0);
            FakeReply reply;
            reply.iResult = iResult;
            reply.payload.assign(request.body.begin(), request.body.begin() + 8);
            reply.payload.resize(16, 0xEE);  // the record's last 4 bytes are never copied
            memcpy(&reply.payload[8], &iVerdict, 4);
            return reply;
        });
    }
    void SetUp() override {
        char szDir[] = "/tmp/talapi-verify-XXXXXX";
        ASSERT_NE(mkdtemp(szDir), nullptr);
        dir = szDir;
        Serve();
    }
    void TearDown() override { std::filesystem::remove_all(dir); }

    // A request whose upload holds `bytes` (none: no file), with the channel in its command body.
    struct Upload : StageRequest {
        Upload(const std::string &path, const Bytes *pBytes, unsigned long long ullChannel = 5)
            : StageRequest("POST", kUrl, "") {
            if (pBytes != nullptr) {
                std::ofstream(path, std::ios::binary)
                    .write(reinterpret_cast<const char *>(pBytes->data()), pBytes->size());
            }
            strcpy(stClient.packetName, path.c_str());
            auto *pstBody = static_cast<vwCmdBody *>(calloc(1, sizeof(vwCmdBody)));
            pstBody->ulChannelId = ullChannel;
            stCtInt.pParseOut = pstBody;
        }
        int Run() { return RunPostITGTSecurityCodeVerify(&stHeader, &stClient, &stCtInt); }
        int Format(int iRun) {
            return FormatPostITGTSecurityCodeVerify(&stHeader, static_cast<VW_RESULT_TYPE>(iRun),
                                                    &stCtInt, &response.stBuf);
        }
    };

    std::string dir;
    FakeDaemon daemon;
    LogCapture logs;
};

TEST_F(SecurityCodeVerifyTest, AcceptsJpegPicturesOnlyAndMovesThemToTheFixedPath) {
    const Bytes png = {0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A, 0};
    const Bytes swapped = {0xD8, 0xFF, 1, 2, 3, 4, 5, 6};
    const Bytes seven = {0xFF, 0xD8, 1, 2, 3, 4, 5};
    const Bytes eight = {0xFF, 0xD8, 0x21, 0, 0, 0, 0, 0};
    const Bytes large = Jpeg(0x22, 5000);
    struct Row {
        const Bytes *pBytes;
        int iRun;
        const char *pcLast;  // the last debug line, %s the upload; null when accepted
    };
    const Row rows[] = {
        {&eight, 0, nullptr},
        {&large, 0, nullptr},
        {&swapped, 4, "[TALAPI]:%s is not jpg"},
        {&png, 4, "[TALAPI]:%s is not jpg"},
        {&seven, 4, "[TALAPI]:%s fread failed"},
        {nullptr, 4, "[TALAPI]:%s not exist"},
    };
    for (const Row &row : rows) {
        std::string path = dir + "/upload-" + std::to_string(&row - rows);
        std::size_t uBefore = daemon.RequestCount();
        logs.Clear();
        Upload upload(path, row.pBytes);
        EXPECT_EQ(upload.Run(), row.iRun) << path;
        if (row.pcLast != nullptr) {
            LogLine last = BusinessLines(logs).back();
            EXPECT_EQ(last.message, Printf(row.pcLast, path.c_str()));
            EXPECT_EQ(last.level, row.pBytes == nullptr ? 3 : 0);
            EXPECT_EQ(daemon.RequestCount(), uBefore);
            EXPECT_EQ(Exists(path), row.pBytes != nullptr) << "the upload stays where it was";
            continue;
        }
        EXPECT_EQ(ReadFile(kFixed), *row.pBytes);
        EXPECT_FALSE(Exists(path));
        EXPECT_STREQ(upload.stClient.packetName, kFixed);
        FakeRequest sent = daemon.Requests().back();
        EXPECT_EQ(sent.uiCmd, 20101u);
        EXPECT_EQ(sent.body,
                  Bytes(static_cast<unsigned char *>(upload.stCtInt.pParseOut),
                        static_cast<unsigned char *>(upload.stCtInt.pParseOut) + VW_CMD_BODY_SIZE));
    }
}

TEST_F(SecurityCodeVerifyTest, TheVerdictChoosesTheEventAndAFailedReplyGivesNoBody) {
    struct Row {
        int iVerdict, iResult;
        unsigned long long ullChannel;
        int iRun, iFormat;
        const char *pcBody;  // null: no body, no event
        bool bPassed;
    };
    const Row rows[] = {
        {4502, 0, 5, 0, 0, "{\n  \"channelId\": 5,\n  \"verifyResult\": 4502\n}", true},
        {4501, 0, 4294967301ULL, 0, 0,
         "{\n  \"channelId\": 4294967301,\n  \"verifyResult\": 4501\n}", false},
        {4502, 7, 5, 7, -1, nullptr, false},
    };
    for (const Row &row : rows) {
        Serve(row.iVerdict, row.iResult);
        logs.Clear();
        Upload upload(dir + "/picture", nullptr, row.ullChannel);
        std::ofstream(dir + "/picture", std::ios::binary) << "\xFF\xD8verdict";
        int iRun = upload.Run();
        EXPECT_EQ(iRun, row.iRun);
        EXPECT_EQ(upload.Format(iRun), row.iFormat);
        if (row.pcBody == nullptr) {
            EXPECT_EQ(upload.response.iCalls, 0);
            EXPECT_TRUE(logs.LanguageEntries().empty());
            EXPECT_EQ(
                BusinessLines(logs).back().message,
                Printf("[TALAPI]:FormatPostITGTSecurityCodeVerify: invalid param, header[%p] "
                       "ctInt[%p] buf[%p] pRunOut[%p]",
                       static_cast<void *>(&upload.stHeader), static_cast<void *>(&upload.stCtInt),
                       static_cast<void *>(&upload.response.stBuf), nullptr));
            continue;
        }
        EXPECT_EQ(upload.response.text, row.pcBody);
        const char *pcEnglish =
            row.bPassed ? "Post SecurityCode Successfully." : "Post SecurityCode fail.";
        const char *pcChinese = row.bPassed ? "智能图片防伪码校验成功." : "智能图片防伪码校验失败.";
        EXPECT_EQ(logs.LanguageEntries(),
                  EventTwice(std::string("admin[192.168.1.20:50123] ") + pcEnglish,
                             std::string("admin[192.168.1.20:50123] ") + pcChinese));
    }
    std::vector<LogLine> lines = BusinessLines(logs);
    EXPECT_NE(std::find(lines.begin(), lines.end(),
                        LogLine{3, "orbapi_itgt_module",
                                "[TALAPI]:RestSendSynUnixMsg Result[7] is not match 0"}),
              lines.end());
}

TEST_F(SecurityCodeVerifyTest, OverlappingVerificationsEachSeeTheirOwnPicture) {
    std::vector<std::thread> threads;
    std::vector<int> verdicts(8, 0);
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([this, i, &verdicts] {
            for (int round = 0; round < 20; ++round) {
                Bytes picture = Jpeg(static_cast<unsigned char>(i + 1));
                Upload upload(dir + "/t" + std::to_string(i), &picture);
                if (upload.Run() != 0) {
                    return;
                }
                int iVerdict =
                    static_cast<const VerifyResultParam *>(upload.stCtInt.pRunOut)->verifyResult;
                if (round > 0 && iVerdict != verdicts[i]) {
                    return;
                }
                verdicts[i] = iVerdict;
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(verdicts[i], 1001 + i) << "thread " << i;
    }
}

TEST_F(SecurityCodeVerifyTest, AnUploadThatCannotBeMovedIsDeletedAndTheCommandSentAllTheSame) {
    struct stat stShm, stTmp;
    if (stat("/dev/shm", &stShm) != 0 || stat("/tmp", &stTmp) != 0 ||
        stShm.st_dev == stTmp.st_dev) {
        GTEST_SKIP() << "needs /dev/shm on another file system than /tmp";
    }
    std::string path = "/dev/shm/talapi-verify-" + std::to_string(getpid());
    Bytes picture = Jpeg(0x30);
    Upload upload(path, &picture);
    EXPECT_EQ(upload.Run(), 0);
    EXPECT_FALSE(Exists(path));
    EXPECT_STREQ(upload.stClient.packetName, kFixed);
    EXPECT_EQ(daemon.RequestCount(), 1u);
    std::vector<LogLine> lines = BusinessLines(logs);
    EXPECT_NE(std::find(lines.begin(), lines.end(),
                        LogLine{3, "orbapi_itgt_module",
                                Printf("[TALAPI]:rename from (%s) -> (%s) faild:errInfo = %s",
                                       path.c_str(), kFixed, strerror(EXDEV))}),
              lines.end());
}

TEST_F(SecurityCodeVerifyTest, StagesRefuseMissingArguments) {
    StageRequest request("POST", kUrl, "");
    EXPECT_EQ(RunPostITGTSecurityCodeVerify(&request.stHeader, nullptr, &request.stCtInt), -1);
    EXPECT_EQ(BusinessLines(logs).back().message,
              Printf("[TALAPI]:invalid param, header[%p] client[%p] ctIn[%p]",
                     static_cast<void *>(&request.stHeader), nullptr,
                     static_cast<void *>(&request.stCtInt)));
    EXPECT_EQ(daemon.RequestCount(), 0u);
}

}  // namespace
