// SPDX-License-Identifier: Apache-2.0
// A minimal access server: loads a business module, serves one GET of a channel's system back
// language through the backend daemon in the calling order (Run, then Format) and prints the
// response. usage: minimal_host MODULE CHANNEL
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "orbapi_itgt_module.h"
#include "talapi_common.h"
#include "talapi_unix_socket.h"

int main(int argc, char **argv) {
    void *pvModule = argc == 3 ? dlopen(argv[1], RTLD_NOW | RTLD_LOCAL) : nullptr;
    if (pvModule == nullptr) {
        fprintf(stderr, "usage: minimal_host MODULE CHANNEL (%s)\n", argc == 3 ? dlerror() : "");
        return 2;
    }
    // The module's header gives each stage's type; the host finds it by its plain name.
    auto pfRun = reinterpret_cast<decltype(&RunGetITGTSysBackLanguage)>(
        dlsym(pvModule, "RunGetITGTSysBackLanguage"));
    auto pfFormat = reinterpret_cast<decltype(&FormatGetITGTSysBackLanguage)>(
        dlsym(pvModule, "FormatGetITGTSysBackLanguage"));
    if (pfRun == nullptr || pfFormat == nullptr) {
        fprintf(stderr, "minimal_host: %s lacks the language stages\n", argv[1]);
        return 2;
    }
    tagHTTP_HEADER_S stHeader{};
    snprintf(stHeader.method, sizeof(stHeader.method), "GET");
    snprintf(stHeader.url, sizeof(stHeader.url), "/api/v1/itgt/sys-back-language");
    snprintf(stHeader.queryString, sizeof(stHeader.queryString), "ChannelId=%s", argv[2]);
    snprintf(stHeader.userName, sizeof(stHeader.userName), "sdk");
    snprintf(stHeader.clientIp, sizeof(stHeader.clientIp), "127.0.0.1");
    tagUNIX_SOCKET_S stSocket;
    UnixSocketInit(&stSocket);
    tagHTTP_CLIENT_S stClient{};
    stClient.pstUnixSocket = &stSocket;
    tagHTTP_CNTENT_INTER_S stCtIn{};
    std::string strResponse;
    tagHTTP_BUF_S stOut{[](tagHTTP_BUF_S *pstBuf, const char *pcData, unsigned int uiLen) {
                            static_cast<std::string *>(pstBuf->pvHostSink)->append(pcData, uiLen);
                            return 0;
                        },
                        &strResponse, nullptr};
    const VW_RESULT_TYPE enResult = pfRun(&stHeader, &stClient, &stCtIn);
    (void)pfFormat(&stHeader, enResult, &stCtIn, &stOut);
    free(stCtIn.pRunOut);  // the host releases the records the stages left
    UnixSocketClose(&stSocket);
    printf("%s\n", strResponse.c_str());
    return enResult == VW_RESULT_OK ? 0 : 1;
}
