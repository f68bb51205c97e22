// SPDX-License-Identifier: Apache-2.0
#include "log_capture.h"

#include <cstdlib>
#include <mutex>

namespace {

std::mutex g_mutex;  // guards g_pActive and the entries of the active capture
LogCapture *g_pActive = nullptr;

}  // namespace

LogCapture::LogCapture() {
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        if (g_pActive != nullptr) {
            std::abort();  // another capture is active
        }
        g_pActive = this;
    }
    // The sinks run only between this call and the destructor's, so g_pActive is set.
    VW_SetLogSinks(
        [](const VW_DEBUG_LOG_S *p) {
            std::lock_guard<std::mutex> lock(g_mutex);
            g_pActive->m_debug.push_back({p->iModule, p->iLevel, p->iDebugFlag, p->iSysErr,
                                          p->pcFile == nullptr ? "" : p->pcFile, p->iLine,
                                          p->pcMessage});
        },
        [](const VW_LANGUAGE_LOG_S *p) {
            std::lock_guard<std::mutex> lock(g_mutex);
            g_pActive->m_language.push_back({p->iLogNo, p->iModule, p->pcEnglish, p->pcChinese});
        });
}

LogCapture::~LogCapture() {
    VW_SetLogSinks(nullptr, nullptr);
    std::lock_guard<std::mutex> lock(g_mutex);
    g_pActive = nullptr;
}

std::vector<DebugLogEntry> LogCapture::DebugEntries() const {
    std::lock_guard<std::mutex> lock(g_mutex);
    return m_debug;
}

std::vector<LanguageLogEntry> LogCapture::LanguageEntries() const {
    std::lock_guard<std::mutex> lock(g_mutex);
    return m_language;
}

void LogCapture::Clear() {
    std::lock_guard<std::mutex> lock(g_mutex);
    m_debug.clear();
    m_language.clear();
}
