// SPDX-License-Identifier: Apache-2.0
// The access server's logging library: the debug log and the bilingual operation log.
// Every line is built in a stack buffer and handed to the kernel with one write(), so lines from
// concurrent requests never interleave. Targets (files, sinks) are guarded by a reader-writer
// lock: writers share it, set-up takes it alone, so a file is never closed under a writer and no
// sink is called once VW_SetLogSinks has returned.
#include "talapi_log.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <mutex>
#include <shared_mutex>

#include <fcntl.h>
#include <unistd.h>

VW_DEBUG_FLAG_E g_enDebugFlag = VW_DEBUG_FAILURES;

namespace {

// Bytes of one formatted message with its NUL; longer messages are cut and end with "...".
constexpr size_t kMessageSize = 2048;
// Room for everything on a line besides the messages (time, numbers, file, error text).
constexpr size_t kLineOverhead = 512;
constexpr size_t kErrorTextSize = 128;

struct LogTargets {
    std::shared_mutex mutex;
    int debugFd = STDERR_FILENO;
    int languageFd = STDERR_FILENO;
    VW_DEBUG_LOG_SINK_PF pfDebugSink = nullptr;
    VW_LANGUAGE_LOG_SINK_PF pfLanguageSink = nullptr;
};

LogTargets &Targets() {
    static LogTargets s_targets;
    return s_targets;
}

// vsnprintf that never leaves half a UTF-8 character behind when the text has to be cut.
__attribute__((format(printf, 3, 0))) bool FormatText(char *pcBuf, size_t size,
                                                      const char *pcFormat, va_list ap) {
    int n = vsnprintf(pcBuf, size, pcFormat, ap);
    if (n < 0) {
        return false;
    }
    if (static_cast<size_t>(n) >= size) {
        constexpr char kMark[] = "...";
        size_t len = size - sizeof(kMark);
        // pcBuf[len] is the first byte dropped; drop the rest of its character too.
        while (len > 0 && (static_cast<unsigned char>(pcBuf[len]) & 0xC0) == 0x80) {
            --len;
        }
        memcpy(pcBuf + len, kMark, sizeof(kMark));
    }
    return true;
}

// "YYYY-MM-DD hh:mm:ss.mmm" in local time.
void FormatStamp(char (&acStamp)[32]) {
    timespec ts{};
    clock_gettime(CLOCK_REALTIME, &ts);
    tm stTime{};
    time_t seconds = ts.tv_sec;
    localtime_r(&seconds, &stTime);
    size_t len = strftime(acStamp, sizeof(acStamp), "%Y-%m-%d %H:%M:%S", &stTime);
    snprintf(acStamp + len, sizeof(acStamp) - len, ".%03ld",
             static_cast<long>(ts.tv_nsec / 1000000));
}

// strerror_r comes in a GNU flavour (returns the text) and an XSI one (fills the buffer).
[[maybe_unused]] const char *ErrorText(const char *pcText, const char *) {
    return pcText;
}
[[maybe_unused]] const char *ErrorText(int iResult, const char *pcBuf) {
    return iResult == 0 ? pcBuf : "unknown error";
}

const char *BaseName(const char *pcPath) {
    if (pcPath == nullptr) {
        return "-";
    }
    const char *pcSlash = strrchr(pcPath, '/');
    return pcSlash == nullptr ? pcPath : pcSlash + 1;
}

int WriteLine(int fd, const char *pcLine, int iLen) {
    if (iLen < 0) {
        return -1;
    }
    size_t done = 0;
    while (done < static_cast<size_t>(iLen)) {
        ssize_t n = write(fd, pcLine + done, static_cast<size_t>(iLen) - done);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            return -1;
        }
        done += static_cast<size_t>(n);
    }
    return 0;
}

int SetLogFile(int LogTargets::*pFd, const char *pcPath) {
    int fd = STDERR_FILENO;
    if (pcPath != nullptr) {
        fd = open(pcPath, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
        if (fd < 0) {
            return -1;
        }
    }
    LogTargets &targets = Targets();
    int oldFd;
    {
        std::unique_lock<std::shared_mutex> lock(targets.mutex);
        oldFd = targets.*pFd;
        targets.*pFd = fd;
    }
    // No writer can still hold the old descriptor: writers hold the lock across write().
    if (oldFd != STDERR_FILENO) {
        close(oldFd);
    }
    return 0;
}

}  // namespace

// Each writer formats its line in one stack buffer, the message in place after its prefix, and
// writes it with one write(): a stage's stack holds the command body and the reply besides.
int VW_WriteLog(int iModule, int iLevel, int iDebugFlag, int iSysErr, const char *pcFile, int iLine,
                const char *pcFormat, ...) {
    LogTargets &targets = Targets();
    std::shared_lock<std::shared_mutex> lock(targets.mutex);
    if (targets.pfDebugSink == nullptr && iLevel < iDebugFlag) {
        return 0;
    }
    if (pcFormat == nullptr) {
        return -1;
    }
    // Prefix (at most 320 bytes), message, error text and newline.
    char acLine[kMessageSize + kLineOverhead];
    int iPrefix = 0;
    if (targets.pfDebugSink == nullptr) {
        char acStamp[32];
        FormatStamp(acStamp);
        iPrefix = snprintf(acLine, kLineOverhead, "%s L%d M%d %.255s:%d ", acStamp, iLevel, iModule,
                           BaseName(pcFile), iLine);
        if (iPrefix < 0) {
            return -1;
        }
    }
    char *pcMessage = acLine + iPrefix;
    va_list ap;
    va_start(ap, pcFormat);
    bool bFormatted = FormatText(pcMessage, kMessageSize, pcFormat, ap);
    va_end(ap);
    if (!bFormatted) {
        return -1;
    }
    if (targets.pfDebugSink != nullptr) {
        VW_DEBUG_LOG_S stLog{iModule, iLevel, iDebugFlag, iSysErr, pcFile, iLine, pcMessage};
        targets.pfDebugSink(&stLog);
        return 0;
    }
    char acErrBuf[kErrorTextSize] = "";
    const char *pcErr =
        iSysErr == 0 ? "" : ErrorText(strerror_r(iSysErr, acErrBuf, sizeof(acErrBuf)), acErrBuf);
    size_t len = static_cast<size_t>(iPrefix) + strlen(pcMessage);
    int iTail =
        snprintf(acLine + len, sizeof(acLine) - len, "%s%.127s\n", iSysErr == 0 ? "" : ": ", pcErr);
    return WriteLine(targets.debugFd, acLine, iTail < 0 ? -1 : static_cast<int>(len) + iTail);
}

int VW_WriteLanguageLog(int iLogNo, int iModule, const char *pcEnglish, const char *pcChinese,
                        ...) {
    if (pcEnglish == nullptr || pcChinese == nullptr) {
        return -1;
    }
    LogTargets &targets = Targets();
    std::shared_lock<std::shared_mutex> lock(targets.mutex);
    // Prefix (at most 50 bytes), English, " | ", Chinese and newline; for a sink, the two texts
    // alone, one after the other.
    char acLine[2 * kMessageSize + kLineOverhead];
    const bool bSink = targets.pfLanguageSink != nullptr;
    int iPrefix = 0;
    if (!bSink) {
        char acStamp[32];
        FormatStamp(acStamp);
        iPrefix = snprintf(acLine, kLineOverhead, "%s N%d M%d ", acStamp, iLogNo, iModule);
        if (iPrefix < 0) {
            return -1;
        }
    }
    char *pcEnglishText = acLine + iPrefix;
    va_list ap;
    va_list apChinese;
    va_start(ap, pcChinese);
    va_copy(apChinese, ap);
    bool bFormatted = FormatText(pcEnglishText, kMessageSize, pcEnglish, ap);
    char *pcChineseText = pcEnglishText + strlen(pcEnglishText) + (bSink ? 1 : 3);
    bFormatted = bFormatted && FormatText(pcChineseText, kMessageSize, pcChinese, apChinese);
    va_end(apChinese);
    va_end(ap);
    if (!bFormatted) {
        return -1;
    }
    if (bSink) {
        VW_LANGUAGE_LOG_S stLog{iLogNo, iModule, pcEnglishText, pcChineseText};
        targets.pfLanguageSink(&stLog);
        return 0;
    }
    memcpy(pcChineseText - 3, " | ", 3);
    size_t len = static_cast<size_t>(pcChineseText - acLine) + strlen(pcChineseText);
    acLine[len++] = '\n';
    return WriteLine(targets.languageFd, acLine, static_cast<int>(len));
}

int VW_SetDebugLogFile(const char *pcPath) {
    return SetLogFile(&LogTargets::debugFd, pcPath);
}

int VW_SetLanguageLogFile(const char *pcPath) {
    return SetLogFile(&LogTargets::languageFd, pcPath);
}

// Sinks are called under the shared lock, so they must not call the logging services.
void VW_SetLogSinks(VW_DEBUG_LOG_SINK_PF pfDebug, VW_LANGUAGE_LOG_SINK_PF pfLanguage) {
    LogTargets &targets = Targets();
    std::unique_lock<std::shared_mutex> lock(targets.mutex);
    targets.pfDebugSink = pfDebug;
    targets.pfLanguageSink = pfLanguage;
}
