// SPDX-License-Identifier: Apache-2.0
// Start-up: the options, the logs, the module and its stages.
#include "desk_startup.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <utility>
#include <vector>

#include "talapi_log.h"

namespace {

constexpr const char *kProgram = "talapi_desk_server";

constexpr const char *kUsage =
    "usage: talapi_desk_server [options]\n"
    "  --module PATH      business module to load (default: from the server's folder,\n"
    "                     " TALAPI_DESK_MODULE_FROM_BIN
    ")\n"
    "  --listen ADDR      address to listen on (default 127.0.0.1); an address other than\n"
    "                     loopback needs --auth-file or --no-auth\n"
    "  --port N           port to listen on, 0 for any free one (default 8080)\n"
    "  --run-dir DIR      directory of debug.log and operation.log (default ./run)\n"
    "  --log-stderr       write both logs to stderr instead\n"
    "  --debug-flag N     debug log threshold 0..4 (default 3)\n"
    "  --threads N        HTTP worker threads (default 32); each stalled client holds one\n"
    "                     for up to the request timeout\n"
    "  --request-timeout-ms N\n"
    "                     longest silence of a client within a request (default 10000)\n"
    "  --auth-file FILE   htdigest passwords file: HTTP Digest authentication of every\n"
    "                     request, the user named in the operation log\n"
    "  --auth-realm TEXT  realm of the passwords (default talapi-desk)\n"
    "  --viewer NAME      a user who may only read (GET, HEAD); repeatable\n"
    "  --no-auth          listen on any address without authentication\n"
    "  --set-password NAME\n"
    "                     add NAME to the passwords file or change their password (read from\n"
    "                     standard input), then exit\n"
    "  --delete-user NAME remove NAME from the passwords file, then exit\n"
    "  --require-if-match refuse a PUT without If-Match (428)\n"
    "  --cors-origin ORIGIN\n"
    "                     let pages of ORIGIN use the API (CORS); default: no other origin\n"
    "  --document-root DIR\n"
    "                     serve the files of DIR (such as the console, desk_console) at the\n"
    "                     paths no resource has, to the users of --auth-file if given\n"
    "                     (default: none, such paths answer 404)\n"
    "HTTP status by the request's result: 0 -> 200, 4 -> 400, 6 -> 404, 1 -> 502,\n"
    "any other failure -> 500. Unknown path 404, method not served 405, body over\n"
    "64 KiB (upload over 8 MiB) 413, path or query too long 414, body not whole within\n"
    "the request timeout 408, If-Match not matching 412.\n";

bool ParseNumber(const char *pcText, long lMin, long lMax, long *plOut) {
    char *pcEnd = nullptr;
    errno = 0;
    const long lValue = strtol(pcText, &pcEnd, 10);
    if (errno != 0 || pcEnd == pcText || *pcEnd != '\0' || lValue < lMin || lValue > lMax) {
        return false;
    }
    *plOut = lValue;
    return true;
}

template <typename F>
bool ResolveStage(void *pvModule, const char *pcName, const std::string &strPath, F *ppfStage) {
    *ppfStage = nullptr;
    if (pcName == nullptr) {
        return true;
    }
    void *pvSymbol = dlsym(pvModule, pcName);
    if (pvSymbol == nullptr) {
        fprintf(stderr, "%s: missing stage %s in %s\n", kProgram, pcName, strPath.c_str());
        return false;
    }
    *ppfStage = reinterpret_cast<F>(pvSymbol);
    return true;
}

}  // namespace

std::string DefaultModule() {
    std::error_code ec;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", ec);
    return (self.parent_path() / TALAPI_DESK_MODULE_FROM_BIN).lexically_normal().string();
}

int ParseOptions(int argc, char **argv, Options &stOpt) {
    struct ValuedOption {
        const char *pcName;
        std::string *pstrText;  // a text option, or
        long *plNumber;         // a number option in [lMin, lMax]
        long lMin;
        long lMax;
        std::vector<std::string> *pvecList = nullptr;  // or a repeatable text option
    };
    const ValuedOption astValued[] = {
        {"--module", &stOpt.strModule, nullptr, 0, 0},
        {"--listen", &stOpt.strListen, nullptr, 0, 0},
        {"--port", nullptr, &stOpt.lPort, 0, 65535},
        {"--run-dir", &stOpt.strRunDir, nullptr, 0, 0},
        {"--debug-flag", nullptr, &stOpt.lDebugFlag, VW_DEBUG_ALL, VW_DEBUG_OFF},
        {"--threads", nullptr, &stOpt.lThreads, 1, 1024},
        {"--request-timeout-ms", nullptr, &stOpt.lRequestTimeoutMs, 100, 3600000},
        {"--document-root", &stOpt.strDocumentRoot, nullptr, 0, 0},
        {"--cors-origin", &stOpt.strCorsOrigin, nullptr, 0, 0},
        {"--auth-file", &stOpt.stAuth.strFile, nullptr, 0, 0},
        {"--auth-realm", &stOpt.stAuth.strRealm, nullptr, 0, 0},
        {"--set-password", &stOpt.strSetPassword, nullptr, 0, 0},
        {"--delete-user", &stOpt.strDeleteUser, nullptr, 0, 0},
        {"--viewer", nullptr, nullptr, 0, 0, &stOpt.stAuth.vecViewers},
    };
    const std::pair<const char *, bool *> astFlags[] = {
        {"--log-stderr", &stOpt.bLogStderr},
        {"--no-auth", &stOpt.bNoAuth},
        {"--require-if-match", &stOpt.bRequireIfMatch},
    };
    for (int i = 1; i < argc; ++i) {
        const std::string strArg = argv[i];
        if (strArg == "--help" || strArg == "-h") {
            fputs(kUsage, stdout);
            return -1;
        }
        bool bFlag = false;
        for (const auto &stFlag : astFlags) {
            bFlag = bFlag || (strArg == stFlag.first && (*stFlag.second = true));
        }
        if (bFlag) {
            continue;
        }
        const ValuedOption *pstOption = nullptr;
        for (const ValuedOption &stOption : astValued) {
            pstOption = strArg == stOption.pcName ? &stOption : pstOption;
        }
        if (pstOption == nullptr) {
            fprintf(stderr, "%s: unknown option %s\n%s", kProgram, strArg.c_str(), kUsage);
            return 1;
        }
        const char *pcValue = i + 1 < argc ? argv[++i] : nullptr;
        bool bOk = pcValue != nullptr;
        if (bOk && pstOption->pvecList != nullptr) {
            pstOption->pvecList->emplace_back(pcValue);
        } else if (bOk && pstOption->pstrText != nullptr) {
            *pstOption->pstrText = pcValue;
        } else if (bOk) {
            bOk = ParseNumber(pcValue, pstOption->lMin, pstOption->lMax, pstOption->plNumber);
        }
        if (!bOk) {
            fprintf(stderr, "%s: bad or missing value for %s\n", kProgram, strArg.c_str());
            return 1;
        }
    }
    return 0;
}

bool CheckSettings(const Options &stOpt) {
    std::error_code ec;
    if (!stOpt.strDocumentRoot.empty() &&
        !std::filesystem::is_directory(stOpt.strDocumentRoot, ec)) {
        fprintf(stderr, "%s: document root %s is not a directory\n", kProgram,
                stOpt.strDocumentRoot.c_str());
        return false;
    }
    if (stOpt.stAuth.strFile.empty() && !stOpt.bNoAuth && !IsLoopback(stOpt.strListen)) {
        fprintf(stderr,
                "%s: %s is reachable from other machines: give --auth-file FILE (or --no-auth "
                "to serve anyone)\n",
                kProgram, stOpt.strListen.c_str());
        return false;
    }
    if (!stOpt.stAuth.strFile.empty() && access(stOpt.stAuth.strFile.c_str(), R_OK) != 0) {
        fprintf(stderr, "%s: cannot read the passwords file %s: %s\n", kProgram,
                stOpt.stAuth.strFile.c_str(), strerror(errno));
        return false;
    }
    return true;
}

bool OpenLogs(const Options &stOpt) {
    if (stOpt.bLogStderr) {
        return true;  // both logs stay on stderr
    }
    std::error_code ec;
    std::filesystem::create_directories(stOpt.strRunDir, ec);
    if (ec) {
        fprintf(stderr, "%s: cannot create run directory %s: %s\n", kProgram,
                stOpt.strRunDir.c_str(), ec.message().c_str());
        return false;
    }
    const std::string strDebug = stOpt.strRunDir + "/debug.log";
    const std::string strOperation = stOpt.strRunDir + "/operation.log";
    if (VW_SetDebugLogFile(strDebug.c_str()) != 0 ||
        VW_SetLanguageLogFile(strOperation.c_str()) != 0) {
        fprintf(stderr, "%s: cannot open the logs in %s\n", kProgram, stOpt.strRunDir.c_str());
        return false;
    }
    return true;
}

void *LoadModule(const std::string &strPath, DeskServer &stServer) {
    void *pvModule = dlopen(strPath.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (pvModule == nullptr) {
        fprintf(stderr, "%s: cannot load module: %s\n", kProgram, dlerror());
        return nullptr;
    }
    for (unsigned int i = 0; i < kDeskRouteCount; ++i) {
        const DeskRoute &stRoute = kDeskRoutes[i];
        Stages &stStages = stServer.astStages[i];
        const bool bPut = strcmp(stRoute.pcMethod, "PUT") == 0;
        if (bPut != (stRoute.pcPreProc != nullptr) || bPut != (stRoute.pcParse != nullptr) ||
            stRoute.pcRun == nullptr || stRoute.pcFormat == nullptr) {
            fprintf(stderr, "%s: route %s %s does not name the stages of its method\n", kProgram,
                    stRoute.pcMethod, stRoute.pcPath);
            dlclose(pvModule);
            return nullptr;
        }
        if (!ResolveStage(pvModule, stRoute.pcPreProc, strPath, &stStages.pfPreProc) ||
            !ResolveStage(pvModule, stRoute.pcParse, strPath, &stStages.pfParse) ||
            !ResolveStage(pvModule, stRoute.pcRun, strPath, &stStages.pfRun) ||
            !ResolveStage(pvModule, stRoute.pcFormat, strPath, &stStages.pfFormat)) {
            dlclose(pvModule);
            return nullptr;
        }
    }
    return pvModule;
}
