// SPDX-License-Identifier: Apache-2.0
// Authentication and roles.
#include "desk_auth.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iostream>

#include "desk_responses.h"
#include "talapi_types.h"

namespace {

constexpr const char *kProgram = "talapi_desk_server";

// Copies a text into a fixed field; false (and nothing copied) when it does not fit.
bool CopyName(char *pcDest, std::size_t uCapacity, const char *pcName) {
    const std::size_t uLength = strlen(pcName);
    if (uLength >= uCapacity) {
        return false;
    }
    memcpy(pcDest, pcName, uLength + 1);
    return true;
}

}  // namespace

Access Authenticate(mg_connection *pstConn, const AuthSettings &stAuth, bool bWrites, char *pcUser,
                    std::size_t uCapacity) {
    if (stAuth.strFile.empty()) {
        return CopyName(pcUser, uCapacity, "anonymous") ? Access::kGranted : Access::kBadName;
    }
    // Negative: the passwords file cannot be read; no one is let in then.
    if (mg_check_digest_access_authentication(pstConn, stAuth.strRealm.c_str(),
                                              stAuth.strFile.c_str()) <= 0) {
        (void)SendDigestChallenge(pstConn, stAuth.strRealm.c_str());
        return Access::kChallenged;
    }
    const char *pcName = mg_get_request_info(pstConn)->remote_user;  // set by the check
    if (pcName == nullptr || !CopyName(pcUser, uCapacity, pcName)) {
        return Access::kBadName;
    }
    const bool bViewer = std::find(stAuth.vecViewers.begin(), stAuth.vecViewers.end(), pcName) !=
                         stAuth.vecViewers.end();
    return bWrites && bViewer ? Access::kForbidden : Access::kGranted;
}

bool IsLoopback(const std::string &strAddress) {
    std::string strHost = strAddress;
    if (strHost.size() > 2 && strHost.front() == '[' && strHost.back() == ']') {
        strHost = strHost.substr(1, strHost.size() - 2);
    }
    in_addr stV4{};
    in6_addr stV6{};
    if (inet_pton(AF_INET, strHost.c_str(), &stV4) == 1) {
        return (ntohl(stV4.s_addr) >> 24) == 127;
    }
    return inet_pton(AF_INET6, strHost.c_str(), &stV6) == 1 &&
           memcmp(&stV6, &in6addr_loopback, sizeof(stV6)) == 0;
}

int ChangeUser(const AuthSettings &stAuth, const std::string &strUser, bool bRemove) {
    if (stAuth.strFile.empty()) {
        fprintf(stderr, "%s: name the passwords file with --auth-file\n", kProgram);
        return 1;
    }
    if (strUser.empty() || strUser.size() >= HTTP_USER_NAME_LEN ||
        strUser.find(':') != std::string::npos) {
        fprintf(stderr, "%s: a user name is 1 to %zu characters without ':'\n", kProgram,
                HTTP_USER_NAME_LEN - 1);
        return 1;
    }
    std::string strPassword;
    if (!bRemove && (!std::getline(std::cin, strPassword) || strPassword.empty())) {
        fprintf(stderr, "%s: give the password on standard input\n", kProgram);
        return 1;
    }
    if (mg_modify_passwords_file(stAuth.strFile.c_str(), stAuth.strRealm.c_str(), strUser.c_str(),
                                 bRemove ? nullptr : strPassword.c_str()) != 1) {
        fprintf(stderr, "%s: cannot change %s\n", kProgram, stAuth.strFile.c_str());
        return 1;
    }
    return 0;
}
