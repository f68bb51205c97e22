// SPDX-License-Identifier: Apache-2.0
// Conditional requests and the writer lock of each resource instance.
#include "desk_conditional.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace {

// Calls pfTag for each entity tag of a comma-separated list (with its "W/" prefix, if any)
// until it returns true; true then. "*" is passed as it is.
template <typename F>
bool AnyTag(const char *pcField, F &&pfTag) {
    std::string_view svRest = pcField != nullptr ? pcField : "";
    while (!svRest.empty()) {
        const std::size_t uComma = svRest.find(',');
        std::string_view svTag = svRest.substr(0, uComma);
        svRest = uComma == std::string_view::npos ? "" : svRest.substr(uComma + 1);
        while (!svTag.empty() && (svTag.front() == ' ' || svTag.front() == '\t')) {
            svTag.remove_prefix(1);
        }
        while (!svTag.empty() && (svTag.back() == ' ' || svTag.back() == '\t')) {
            svTag.remove_suffix(1);
        }
        if (!svTag.empty() && pfTag(svTag)) {
            return true;
        }
    }
    return false;
}

}  // namespace

std::string EntityTagOf(const void *pvRecord, std::size_t uSize) {
    // FNV-1a, 64 bits: records are a few KiB at most and the tag only has to change with them.
    std::uint64_t ullHash = 0xcbf29ce484222325ULL;
    const unsigned char *pucByte = static_cast<const unsigned char *>(pvRecord);
    for (std::size_t i = 0; i < uSize; ++i) {
        ullHash = (ullHash ^ pucByte[i]) * 0x100000001b3ULL;
    }
    char acTag[32];
    snprintf(acTag, sizeof(acTag), "\"%016" PRIx64 "\"", ullHash);
    return acTag;
}

bool IfMatchHolds(const char *pcField, const std::string &strTag) {
    return AnyTag(pcField, [&strTag](std::string_view svTag) {
        return svTag == "*" || svTag == strTag;  // a weak tag never matches strongly
    });
}

bool IfNoneMatchFails(const char *pcField, const std::string &strTag) {
    return AnyTag(pcField, [&strTag](std::string_view svTag) {
        if (svTag.substr(0, 2) == "W/") {
            svTag.remove_prefix(2);
        }
        return svTag == "*" || svTag == strTag;
    });
}

InstanceLocks::Guard::Guard(InstanceLocks &stLocks, std::string strKey)
    : m_stLocks(stLocks), m_strKey(std::move(strKey)) {
    {
        std::lock_guard<std::mutex> lock(m_stLocks.m_mapLock);
        Entry &stEntry = m_stLocks.m_mapEntries[m_strKey];
        ++stEntry.uiUsers;
        m_pMutex = &stEntry.mutex;  // map nodes stay where they are until erased
    }
    m_pMutex->lock();
}

InstanceLocks::Guard::~Guard() {
    m_pMutex->unlock();
    std::lock_guard<std::mutex> lock(m_stLocks.m_mapLock);
    auto it = m_stLocks.m_mapEntries.find(m_strKey);
    if (--it->second.uiUsers == 0) {
        m_stLocks.m_mapEntries.erase(it);
    }
}
