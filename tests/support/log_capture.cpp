#include "log_capture.h"

#include <cstdio>
#include <cstdlib>
#include <tuple>

namespace {

std::mutex g_activeMutex;
LogCapture *g_pActive = nullptr;

std::string Text(const char *pc) {
    return pc == nullptr ? std::string() : std::string(pc);
}

auto Fields(const DebugLogEntry &e) {
    return std::tie(e.module, e.level, e.debugFlag, e.sysErr, e.file, e.line, e.message);
}

auto Fields(const LanguageLogEntry &e) {
    return std::tie(e.logNo, e.module, e.english, e.chinese);
}

}  // namespace

bool operator==(const DebugLogEntry &a, const DebugLogEntry &b) {
    return Fields(a) == Fields(b);
}

bool operator==(const LanguageLogEntry &a, const LanguageLogEntry &b) {
    return Fields(a) == Fields(b);
}

std::ostream &operator<<(std::ostream &os, const DebugLogEntry &e) {
    return os << "{module " << e.module << ", level " << e.level << ", flag " << e.debugFlag
              << ", sysErr " << e.sysErr << ", " << e.file << ":" << e.line << ", \"" << e.message
              << "\"}";
}

std::ostream &operator<<(std::ostream &os, const LanguageLogEntry &e) {
    return os << "{logNo " << e.logNo << ", module " << e.module << ", \"" << e.english << "\", \""
              << e.chinese << "\"}";
}

LogCapture::LogCapture() {
    {
        std::lock_guard<std::mutex> lock(g_activeMutex);
        if (g_pActive != nullptr) {
            std::fputs("LogCapture: another capture is already active\n", stderr);
            std::abort();
        }
        g_pActive = this;
    }
    VW_SetLogSinks(&LogCapture::OnDebug, &LogCapture::OnLanguage);
}

LogCapture::~LogCapture() {
    VW_SetLogSinks(nullptr, nullptr);
    std::lock_guard<std::mutex> lock(g_activeMutex);
    g_pActive = nullptr;
}

std::vector<DebugLogEntry> LogCapture::DebugEntries() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_debug;
}

std::vector<LanguageLogEntry> LogCapture::LanguageEntries() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_language;
}

void LogCapture::Clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_debug.clear();
    m_language.clear();
}

void LogCapture::OnDebug(const VW_DEBUG_LOG_S *pstLog) {
    std::lock_guard<std::mutex> activeLock(g_activeMutex);
    if (g_pActive == nullptr) {
        return;
    }
    std::lock_guard<std::mutex> lock(g_pActive->m_mutex);
    g_pActive->m_debug.push_back({pstLog->iModule, pstLog->iLevel, pstLog->iDebugFlag,
                                  pstLog->iSysErr, Text(pstLog->pcFile), pstLog->iLine,
                                  Text(pstLog->pcMessage)});
}

void LogCapture::OnLanguage(const VW_LANGUAGE_LOG_S *pstLog) {
    std::lock_guard<std::mutex> activeLock(g_activeMutex);
    if (g_pActive == nullptr) {
        return;
    }
    std::lock_guard<std::mutex> lock(g_pActive->m_mutex);
    g_pActive->m_language.push_back(
        {pstLog->iLogNo, pstLog->iModule, Text(pstLog->pcEnglish), Text(pstLog->pcChinese)});
}
