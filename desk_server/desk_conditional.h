// SPDX-License-Identifier: Apache-2.0
// Conditional requests and the writer lock of each resource instance.
//
// A resource's entity tag is a hash of the daemon's record bytes: a GET's Run and a PUT's PreProc
// read the same record, so both see the same tag without an extra backend command. A PUT holds
// its instance's lock from PreProc to Run, so the record it compares its If-Match with is the
// one it merges into and writes back.
#ifndef TALAPI_DESK_CONDITIONAL_H
#define TALAPI_DESK_CONDITIONAL_H

#include <cstddef>
#include <mutex>
#include <string>
#include <unordered_map>

// The strong entity tag of a record: its bytes hashed, quoted ("0123456789abcdef").
std::string EntityTagOf(const void *pvRecord, std::size_t uSize);

// Whether an If-Match (strong comparison) or If-None-Match (weak comparison) field value
// matches the current tag: one of its comma-separated entity tags, or "*".
bool IfMatchHolds(const char *pcField, const std::string &strTag);
bool IfNoneMatchFails(const char *pcField, const std::string &strTag);

// One writer at a time per instance key; different keys run in parallel. A key's mutex lives as
// long as someone holds or waits for it.
class InstanceLocks {
  public:
    class Guard {
      public:
        Guard(InstanceLocks &stLocks, std::string strKey);
        ~Guard();
        Guard(const Guard &) = delete;
        Guard &operator=(const Guard &) = delete;

      private:
        InstanceLocks &m_stLocks;
        std::string m_strKey;
        std::mutex *m_pMutex;
    };

  private:
    struct Entry {
        std::mutex mutex;
        unsigned int uiUsers = 0;
    };
    std::mutex m_mapLock;
    std::unordered_map<std::string, Entry> m_mapEntries;  // guarded by m_mapLock
};

#endif
