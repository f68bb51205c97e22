// SPDX-License-Identifier: Apache-2.0
// Authentication and roles: HTTP Digest with CivetWeb's own check against an htdigest passwords
// file; viewers may only read.
#ifndef TALAPI_DESK_AUTH_H
#define TALAPI_DESK_AUTH_H

#include <cstddef>
#include <string>
#include <vector>

#include <civetweb.h>

struct AuthSettings {
    std::string strFile;  // htdigest passwords file; empty: no authentication
    std::string strRealm = "talapi-desk";
    std::vector<std::string> vecViewers;  // users who may only GET
};

enum class Access { kGranted, kChallenged, kForbidden, kBadName };

// Authenticates a request and checks its user's role (bWrites: PUT or POST). On kGranted the
// operation-log name is in pcUser: the authenticated user, or "anonymous" without a passwords
// file (a name the client claims is never used). kChallenged: the 401 challenge has been sent.
Access Authenticate(mg_connection *pstConn, const AuthSettings &stAuth, bool bWrites, char *pcUser,
                    std::size_t uCapacity);

// Whether a listening address only reaches this machine.
bool IsLoopback(const std::string &strAddress);

// Adds a user or changes their password (read from standard input, one line), or removes the
// user (bRemove), in the passwords file with CivetWeb's own function. Returns the exit code.
int ChangeUser(const AuthSettings &stAuth, const std::string &strUser, bool bRemove);

#endif
