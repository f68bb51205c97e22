// SPDX-License-Identifier: Apache-2.0
// Start-up: the options, the logs, the module and its stages.
#ifndef TALAPI_DESK_STARTUP_H
#define TALAPI_DESK_STARTUP_H

#include <string>

#include "desk_pipeline.h"
#include "talapi_log.h"

struct Options {
    std::string strModule;  // empty: the module folder beside the server's (DefaultModule)
    std::string strListen = "127.0.0.1";
    long lPort = 8080;
    std::string strRunDir = "./run";
    bool bLogStderr = false;
    long lDebugFlag = VW_DEBUG_FAILURES;
    long lThreads = 32;
    long lRequestTimeoutMs = 10000;
    std::string strDocumentRoot;  // empty: no file serving
    std::string strCorsOrigin;    // empty: no cross-origin access
    AuthSettings stAuth;
    bool bNoAuth = false;
    bool bRequireIfMatch = false;
    std::string strSetPassword;  // user whose password to set, then exit
    std::string strDeleteUser;   // user to remove, then exit
};

// The module in the host's module folder, found from the folder of the running program.
std::string DefaultModule();

// 0 to go on, otherwise the process's exit code (help: -1 for 0, bad usage: 1).
int ParseOptions(int argc, char **argv, Options &stOpt);

// Refuses settings the server cannot work with: a document root that is not a folder, a
// passwords file that cannot be read, and a non-loopback address without a passwords file
// (anyone could change the camera) unless --no-auth. Prints why.
bool CheckSettings(const Options &stOpt);

bool OpenLogs(const Options &stOpt);

// Loads the module and looks up every route's stages; null (and why, on stderr) on failure.
void *LoadModule(const std::string &strPath, DeskServer &stServer);

#endif
