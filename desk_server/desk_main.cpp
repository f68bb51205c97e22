// SPDX-License-Identifier: Apache-2.0
// The desk access server: an HTTP server on CivetWeb that loads a business module with dlopen
// and answers every request on one of the module's resources (desk_routes.h) by calling the
// module's stages in the access server's calling order (desk_pipeline.cpp). Given a document
// root, it serves the files there at every other path with CivetWeb's own file serving.
#include <csignal>
#include <cstdio>
#include <ctime>
#include <string>
#include <vector>

#include <dlfcn.h>
#include <pthread.h>

#include <civetweb.h>

#include "desk_responses.h"
#include "desk_startup.h"
#include "talapi_log.h"

namespace {

// The first message CivetWeb logged on this thread: on the main thread, why it could not start.
thread_local std::string t_strFirstHttpMessage;

// CivetWeb's own messages (its errors) go to the debug log.
int LogCivetWebMessage(const mg_connection *, const char *pcMessage) {
    if (t_strFirstHttpMessage.empty()) {
        t_strFirstHttpMessage = pcMessage;
    }
    VW_WriteLog(VW_LOG_MODULE_TALAPI, VW_LOG_ERROR, g_enDebugFlag, 0, __FILE__, __LINE__,
                "[HTTP]:%s", pcMessage);
    return 1;
}

// CivetWeb's settings: keep-alive without Nagle's delay (CivetWeb sends each header line on its
// own, and a kept connection would wait for the client's delayed ACK), the request timeout,
// CORS preflights answered by CivetWeb when an origin is allowed (and the header on its own 401
// answers), file serving.
std::vector<std::string> HttpSettings(const Options &stOpt) {
    // clang-format off
    std::vector<std::string> vecConfig = {
        "listening_ports", stOpt.strListen + ":" + std::to_string(stOpt.lPort),
        "num_threads", std::to_string(stOpt.lThreads),
        "enable_keep_alive", "yes",
        "tcp_nodelay", "1",
        "request_timeout_ms", std::to_string(stOpt.lRequestTimeoutMs),
        "access_control_allow_origin", stOpt.strCorsOrigin,
        "access_control_allow_methods", "GET, HEAD, PUT, POST, OPTIONS",
        "access_control_allow_headers", "Authorization, Content-Type, If-Match, If-None-Match"};
    // clang-format on
    if (!stOpt.strCorsOrigin.empty()) {
        vecConfig.insert(vecConfig.end(), {"additional_header",
                                           "Access-Control-Allow-Origin: " + stOpt.strCorsOrigin});
    }
    if (!stOpt.strDocumentRoot.empty()) {
        vecConfig.insert(vecConfig.end(), {"document_root", stOpt.strDocumentRoot,
                                           "enable_directory_listing", "no"});
    }
    return vecConfig;
}

}  // namespace

// CivetWeb dates what it answers itself (files, its errors, digest challenges) with gmtime(),
// whose result libc keeps in one buffer for the whole process, so two workers would overwrite
// each other's. Defined in the program, this gmtime is the one the libraries it loads call: each
// thread gets a buffer of its own.
extern "C" struct tm *gmtime(const time_t *pTime) {
    thread_local struct tm t_stTime;
    return gmtime_r(pTime, &t_stTime);
}

int main(int argc, char **argv) {
    Options stOpt;
    const int iUsage = ParseOptions(argc, argv, stOpt);
    if (iUsage != 0) {
        return iUsage < 0 ? 0 : iUsage;
    }
    if (!stOpt.strSetPassword.empty() || !stOpt.strDeleteUser.empty()) {
        const bool bRemove = stOpt.strSetPassword.empty();
        return ChangeUser(stOpt.stAuth, bRemove ? stOpt.strDeleteUser : stOpt.strSetPassword,
                          bRemove);
    }
    if (!CheckSettings(stOpt)) {
        return 1;
    }
    signal(SIGPIPE, SIG_IGN);
    g_enDebugFlag = static_cast<VW_DEBUG_FLAG_E>(stOpt.lDebugFlag);
    if (!OpenLogs(stOpt)) {
        return 1;
    }
    static DeskServer stServer;  // read-only once the server runs, but for its writer locks
    void *pvModule =
        LoadModule(stOpt.strModule.empty() ? DefaultModule() : stOpt.strModule, stServer);
    if (pvModule == nullptr) {
        return 1;
    }
    stServer.bServeFiles = !stOpt.strDocumentRoot.empty();
    stServer.bRequireIfMatch = stOpt.bRequireIfMatch;
    stServer.requestTimeout = std::chrono::milliseconds(stOpt.lRequestTimeoutMs);
    stServer.stAuth = stOpt.stAuth;
    SetCorsOrigin(stOpt.strCorsOrigin);

    // SIGINT and SIGTERM are taken by sigwait below; blocked before CivetWeb starts its threads
    // so that none of them receives one.
    sigset_t stSignals;
    sigemptyset(&stSignals);
    sigaddset(&stSignals, SIGINT);
    sigaddset(&stSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stSignals, nullptr);

    const std::vector<std::string> vecSettings = HttpSettings(stOpt);
    std::vector<const char *> vecConfig;
    for (const std::string &strSetting : vecSettings) {
        vecConfig.push_back(strSetting.c_str());
    }
    vecConfig.push_back(nullptr);
    mg_callbacks stCallbacks{};
    stCallbacks.log_message = LogCivetWebMessage;
    mg_init_data stInit{&stCallbacks, nullptr, vecConfig.data()};
    char acError[256] = "";
    mg_error_data stError{nullptr, acError, sizeof(acError)};
    mg_init_library(0);
    mg_context *pstContext = mg_start2(&stInit, &stError);
    if (pstContext == nullptr) {
        fprintf(stderr, "talapi_desk_server: cannot listen on %s:%ld: %s\n",
                stOpt.strListen.c_str(), stOpt.lPort,
                t_strFirstHttpMessage.empty() ? acError : t_strFirstHttpMessage.c_str());
        mg_exit_library();
        dlclose(pvModule);
        return 1;
    }
    mg_set_request_handler(pstContext, "/", HandleRequest, &stServer);

    mg_server_port stPort{};
    const long lPort = mg_get_server_ports(pstContext, 1, &stPort) == 1 ? stPort.port : stOpt.lPort;
    printf("talapi_desk_server listening on http://%s:%ld\n", stOpt.strListen.c_str(), lPort);
    fflush(stdout);

    int iSignal = 0;
    while (sigwait(&stSignals, &iSignal) != 0) {
    }
    mg_stop(pstContext);
    mg_exit_library();
    dlclose(pvModule);
    return 0;
}
