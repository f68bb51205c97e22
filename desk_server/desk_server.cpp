// The desk access server: an HTTP server on CivetWeb that loads a business module with dlopen
// and answers every request on one of the module's resources (desk_routes.h) by calling the
// module's stages in the access server's calling order. Given a document root, it serves the
// files there at every other path with CivetWeb's own file serving.
//
// Each request runs on a CivetWeb worker thread with host records of its own and the worker's
// backend connection. Requests share only the stage table and the file-serving switch, written
// once before the server starts, and a lock around CivetWeb's Date header.
#include <cerrno>
#include <mutex>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include <dlfcn.h>
#include <pthread.h>
#include <strings.h>
#include <unistd.h>

#include <civetweb.h>

#include "desk_routes.h"
#include "talapi_common.h"
#include "talapi_log.h"
#include "talapi_types.h"
#include "talapi_unix_socket.h"

namespace {

constexpr const char *kProgram = "talapi_desk_server";
constexpr std::size_t kJsonBodyMax = 64 * 1024;
constexpr std::size_t kUploadMax = 8 * 1024 * 1024;
constexpr const char *kUploadTemplate = "/tmp/talapi-upload-XXXXXX";

constexpr const char *kUsage =
    "usage: talapi_desk_server [options]\n"
    "  --module PATH      business module to load (default: the built module)\n"
    "  --listen ADDR      address to listen on (default 127.0.0.1)\n"
    "  --port N           port to listen on, 0 for any free one (default 8080)\n"
    "  --run-dir DIR      directory of debug.log and operation.log (default ./run)\n"
    "  --log-stderr       write both logs to stderr instead\n"
    "  --debug-flag N     debug log threshold 0..4 (default 3)\n"
    "  --threads N        HTTP worker threads (default 8)\n"
    "  --document-root DIR\n"
    "                     serve the files of DIR at the paths no resource has\n"
    "                     (default: none, such paths answer 404)\n"
    "HTTP status by the request's result: 0 -> 200, 4 -> 400, 6 -> 404, 1 -> 502,\n"
    "any other failure -> 500. Unknown path 404, method not served 405, body over\n"
    "64 KiB (upload over 8 MiB) 413, path or query too long 414.\n";

// HTTP status of a request's result, as the common library maps it for the envelope:
//   0 (OK) -> 200, 4 (PARAM_ERR) -> 400, 6 (NOT_SUPPORT) -> 404, 1 (SEND_FAIL) -> 502,
//   any other failure -> 500.
int HttpStatusOf(VW_RESULT_TYPE enResult) {
    return static_cast<int>(FillResponseStatusParam(nullptr, enResult).ullHttpStatus);
}

struct Stages {
    TALAPI_PREPROC_STAGE_PF pfPreProc;
    TALAPI_PARSE_STAGE_PF pfParse;
    TALAPI_RUN_STAGE_PF pfRun;
    TALAPI_FORMAT_STAGE_PF pfFormat;
};

struct Server {
    Stages astStages[kDeskRouteCount];  // by the index of the route in kDeskRoutes
    bool bServeFiles = false;           // paths no route names go to CivetWeb's file serving
};

bool IsRoutePath(const char *pcPath) {
    for (const DeskRoute &stRoute : kDeskRoutes) {
        if (strcmp(stRoute.pcPath, pcPath) == 0) {
            return true;
        }
    }
    return false;
}

// The connection of a worker thread to the backend daemon, kept from one request to the next as
// an access server's workers keep theirs; the common library drops it when the daemon has gone
// and connects anew. Closed when the worker ends.
struct WorkerBackendSocket {
    tagUNIX_SOCKET_S stSocket;
    WorkerBackendSocket() { UnixSocketInit(&stSocket); }
    ~WorkerBackendSocket() { UnixSocketClose(&stSocket); }
};
thread_local WorkerBackendSocket t_workerBackend;

// The host records of one request, calloc'd. Released in the contract's order: the records the
// stages left in the interchange record are freed, then the records. The upload file is removed
// if still under its upload name.
struct RequestRecords {
    tagHTTP_HEADER_S *pstHeader = static_cast<tagHTTP_HEADER_S *>(calloc(1, sizeof(*pstHeader)));
    tagHTTP_CNTENT_INTER_S *pstCtIn =
        static_cast<tagHTTP_CNTENT_INTER_S *>(calloc(1, sizeof(*pstCtIn)));
    tagUNIX_SOCKET_S *pstSocket = &t_workerBackend.stSocket;
    char szUpload[HTTP_PACKET_NAME_LEN] = "";

    RequestRecords() = default;
    ~RequestRecords() {
        if (pstCtIn != nullptr) {
            free(pstCtIn->pPreProcOut);
            free(pstCtIn->pParseOut);
            free(pstCtIn->pRunOut);
        }
        free(pstHeader);
        free(pstCtIn);
        if (szUpload[0] != '\0') {
            (void)unlink(szUpload);
        }
    }
    RequestRecords(const RequestRecords &) = delete;
    RequestRecords &operator=(const RequestRecords &) = delete;
    bool Allocated() const { return pstHeader != nullptr && pstCtIn != nullptr; }
};

// Copies a text into a fixed field, truncated to fit; false when it had to be truncated.
bool CopyText(char *pcDest, std::size_t uCapacity, const char *pcSrc) {
    std::size_t i = 0;
    for (; i + 1 < uCapacity && pcSrc[i] != '\0'; ++i) {
        pcDest[i] = pcSrc[i];
    }
    pcDest[i] = '\0';
    return pcSrc[i] == '\0';
}

// Value of one base64 digit, -1 for any other character.
int Sextet(char c) {
    static const char kAlphabet[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const char *pcDigit = c != '\0' ? strchr(kAlphabet, c) : nullptr;
    return pcDigit != nullptr ? static_cast<int>(pcDigit - kAlphabet) : -1;
}

// Standard base64 with padding; false on any other character, a wrong length or misplaced '='.
bool DecodeBase64(std::string_view svText, std::string &strOut) {
    const std::size_t uLength = svText.size();
    if (uLength % 4 != 0) {
        return false;
    }
    std::size_t uPad = 0;
    while (uPad < 2 && uPad < uLength && svText[uLength - 1 - uPad] == '=') {
        ++uPad;
    }
    for (std::size_t i = 0; i < uLength; i += 4) {
        std::uint32_t uiGroup = 0;
        for (std::size_t j = i; j < i + 4; ++j) {
            const int iSextet = j >= uLength - uPad ? 0 : Sextet(svText[j]);
            if (iSextet < 0) {
                return false;
            }
            uiGroup = (uiGroup << 6) | static_cast<std::uint32_t>(iSextet);
        }
        strOut.push_back(static_cast<char>((uiGroup >> 16) & 0xFF));
        strOut.push_back(static_cast<char>((uiGroup >> 8) & 0xFF));
        strOut.push_back(static_cast<char>(uiGroup & 0xFF));
    }
    strOut.resize(strOut.size() - uPad);
    return true;
}

// The user of "Authorization: Basic base64(user:password)"; "anonymous" without Basic
// credentials. False when the credentials are malformed or the user does not fit the field.
bool FillUserName(const char *pcAuthorization, char *pcUser, std::size_t uCapacity) {
    if (pcAuthorization == nullptr || strncasecmp(pcAuthorization, "Basic ", 6) != 0) {
        return CopyText(pcUser, uCapacity, "anonymous");
    }
    std::string_view svCredentials = pcAuthorization + 6;
    while (!svCredentials.empty() && svCredentials.front() == ' ') {
        svCredentials.remove_prefix(1);
    }
    while (!svCredentials.empty() && svCredentials.back() == ' ') {
        svCredentials.remove_suffix(1);
    }
    std::string strDecoded;
    if (!DecodeBase64(svCredentials, strDecoded)) {
        return false;
    }
    const std::size_t uColon = strDecoded.find(':');
    if (uColon == std::string::npos || strDecoded.find('\0') < uColon) {
        return false;
    }
    strDecoded.resize(uColon);
    return CopyText(pcUser, uCapacity, strDecoded.c_str());
}

// Copy2Buf of the response buffer: appends to the std::string named by pvHostSink.
int AppendToSink(tagHTTP_BUF_S *pstBuf, const char *pcData, unsigned int uiLen) {
    if (pstBuf == nullptr || pstBuf->pvHostSink == nullptr || (pcData == nullptr && uiLen > 0)) {
        return -1;
    }
    try {
        static_cast<std::string *>(pstBuf->pvHostSink)->append(pcData, uiLen);
    } catch (const std::bad_alloc &) {
        return -1;
    }
    return 0;
}

int SendJson(mg_connection *pstConn, int iStatus, const std::string &strBody,
             const char *pcAllow = nullptr) {
    mg_response_header_start(pstConn, iStatus);
    mg_response_header_add(pstConn, "Content-Type", "application/json", -1);
    mg_response_header_add(pstConn, "Content-Length", std::to_string(strBody.size()).c_str(), -1);
    if (pcAllow != nullptr) {
        mg_response_header_add(pstConn, "Allow", pcAllow, -1);
    }
    {
        // CivetWeb writes the Date header with gmtime(), whose result is shared by all threads.
        static std::mutex s_dateLock;
        std::lock_guard<std::mutex> lock(s_dateLock);
        mg_response_header_send(pstConn);
    }
    mg_write(pstConn, strBody.data(), strBody.size());
    return iStatus;
}

// Answers with the status envelope of the result, as the host writes it for a PUT.
int SendEnvelope(mg_connection *pstConn, tagHTTP_HEADER_S *pstHeader, int iStatus,
                 VW_RESULT_TYPE enResult, const char *pcAllow = nullptr) {
    std::string strBody;
    tagHTTP_BUF_S stOut{AppendToSink, &strBody, nullptr};
    (void)FormatCommonStatus(pstHeader, enResult, nullptr, &stOut);
    return SendJson(pstConn, iStatus, strBody, pcAllow);
}

enum class BodyRead { kOk, kTooLarge, kFailed };

// Reads the request body chunk by chunk into pfSink, refusing more than uMax bytes: a declared
// length over the limit is refused unread, otherwise at most uMax + 1 bytes are read.
template <typename Sink>
BodyRead ReadBody(mg_connection *pstConn, std::size_t uMax, Sink &&pfSink) {
    if (mg_get_request_info(pstConn)->content_length > static_cast<long long>(uMax)) {
        return BodyRead::kTooLarge;
    }
    char acChunk[8192];
    std::size_t uTotal = 0;
    for (;;) {
        const std::size_t uLeft = uMax + 1 - uTotal;
        const int iRead =
            mg_read(pstConn, acChunk, uLeft < sizeof(acChunk) ? uLeft : sizeof(acChunk));
        if (iRead <= 0) {
            return iRead == 0 ? BodyRead::kOk : BodyRead::kFailed;
        }
        uTotal += static_cast<std::size_t>(iRead);
        if (uTotal > uMax) {
            return BodyRead::kTooLarge;
        }
        if (!pfSink(acChunk, static_cast<std::size_t>(iRead))) {
            return BodyRead::kFailed;
        }
    }
}

// Streams the body into a new file under /tmp, named in the client's packetName and remembered
// in the records for removal. kFailed also when the file cannot be made or written.
BodyRead StoreUpload(mg_connection *pstConn, RequestRecords &stReq, tagHTTP_CLIENT_S &stClient) {
    char szPath[HTTP_PACKET_NAME_LEN];
    (void)CopyText(szPath, sizeof(szPath), kUploadTemplate);
    const int iFd = mkstemp(szPath);
    if (iFd < 0) {
        return BodyRead::kFailed;
    }
    (void)CopyText(stReq.szUpload, sizeof(stReq.szUpload), szPath);
    (void)CopyText(stClient.packetName, sizeof(stClient.packetName), szPath);
    const BodyRead enRead = ReadBody(pstConn, kUploadMax, [iFd](const char *pc, std::size_t u) {
        while (u > 0) {
            const ssize_t iWritten = write(iFd, pc, u);
            if (iWritten < 0 && errno == EINTR) {
                continue;
            }
            if (iWritten <= 0) {
                return false;
            }
            pc += iWritten;
            u -= static_cast<std::size_t>(iWritten);
        }
        return true;
    });
    return close(iFd) == 0 ? enRead : BodyRead::kFailed;
}

// The command body an upload route's Run stage sends (it has no PreProc or Parse stage to make
// one): zeroed, with the query's "ChannelId" first when it is given. Owned by the request.
bool FillUploadCommand(tagHTTP_HEADER_S *pstHeader, tagHTTP_CNTENT_INTER_S *pstCtIn) {
    vwCmdBody *pstBody = static_cast<vwCmdBody *>(calloc(1, sizeof(vwCmdBody)));
    if (pstBody == nullptr) {
        return false;
    }
    (void)GetURIQueryParamByKey<unsigned long long>(pstHeader, "ChannelId", &pstBody->ulChannelId);
    pstCtIn->pParseOut = pstBody;
    return true;
}

// Calls the stages in the method's order (PreProc, Parse when present; Run; Format), stopping at
// the first failure, whose result Format receives. Returns the request's result.
VW_RESULT_TYPE RunStages(const Stages &stStages, tagHTTP_HEADER_S *pstHeader,
                         tagHTTP_CLIENT_S *pstClient, tagHTTP_CNTENT_INTER_S *pstCtIn,
                         tagHTTP_BUF_S *pstIn, tagHTTP_BUF_S *pstOut, VW_RESULT_TYPE *penFormat) {
    VW_RESULT_TYPE enResult = VW_RESULT_OK;
    if (stStages.pfPreProc != nullptr) {
        enResult = stStages.pfPreProc(pstHeader, pstClient->pstUnixSocket, pstCtIn);
    }
    if (enResult == VW_RESULT_OK && stStages.pfParse != nullptr) {
        enResult = stStages.pfParse(pstHeader, pstIn, pstCtIn);
    }
    if (enResult == VW_RESULT_OK) {
        enResult = stStages.pfRun(pstHeader, pstClient, pstCtIn);
    }
    *penFormat = stStages.pfFormat(pstHeader, enResult, pstCtIn, pstOut);
    return enResult;
}

int HandleRequest(mg_connection *pstConn, void *pvServer) {
    Server &stServer = *static_cast<Server *>(pvServer);
    const mg_request_info *pstInfo = mg_get_request_info(pstConn);
    const char *pcPath = pstInfo->local_uri != nullptr ? pstInfo->local_uri : "";
    if (stServer.bServeFiles && !IsRoutePath(pcPath)) {
        return 0;  // not handled: CivetWeb serves the file from its document root
    }
    RequestRecords stReq;
    if (!stReq.Allocated()) {
        mg_send_http_error(pstConn, 500, "%s", "out of memory");
        return 500;
    }
    tagHTTP_HEADER_S *pstHeader = stReq.pstHeader;
    (void)CopyText(pstHeader->method, sizeof(pstHeader->method), pstInfo->request_method);
    const char *pcQuery = pstInfo->query_string != nullptr ? pstInfo->query_string : "";
    if (!CopyText(pstHeader->url, sizeof(pstHeader->url), pcPath) ||
        !CopyText(pstHeader->queryString, sizeof(pstHeader->queryString), pcQuery)) {
        return SendEnvelope(pstConn, pstHeader, 414, VW_RESULT_PARAM_ERR);
    }

    std::string strAllow;
    unsigned int uiRoute = kDeskRouteCount;
    for (unsigned int i = 0; i < kDeskRouteCount; ++i) {
        if (strcmp(kDeskRoutes[i].pcPath, pstHeader->url) != 0) {
            continue;
        }
        strAllow += (strAllow.empty() ? "" : ", ") + std::string(kDeskRoutes[i].pcMethod);
        if (strcmp(kDeskRoutes[i].pcMethod, pstHeader->method) == 0) {
            uiRoute = i;
        }
    }
    if (strAllow.empty()) {
        return SendEnvelope(pstConn, pstHeader, 404, VW_RESULT_NOT_SUPPORT);
    }
    if (uiRoute == kDeskRouteCount) {
        return SendEnvelope(pstConn, pstHeader, 405, VW_RESULT_FAIL, strAllow.c_str());
    }
    const DeskRoute &stRoute = kDeskRoutes[uiRoute];

    if (!FillUserName(mg_get_header(pstConn, "Authorization"), pstHeader->userName,
                      sizeof(pstHeader->userName))) {
        return SendEnvelope(pstConn, pstHeader, 400, VW_RESULT_PARAM_ERR);
    }
    (void)CopyText(pstHeader->clientIp, sizeof(pstHeader->clientIp), pstInfo->remote_addr);
    pstHeader->clientPort = static_cast<unsigned long long>(pstInfo->remote_port);

    tagHTTP_CLIENT_S stClient{};
    stClient.pstUnixSocket = stReq.pstSocket;
    std::string strBody;
    BodyRead enRead = BodyRead::kOk;
    if (stRoute.pcParse != nullptr) {
        enRead = ReadBody(pstConn, kJsonBodyMax, [&strBody](const char *pc, std::size_t u) {
            strBody.append(pc, u);
            return true;
        });
    } else if (stRoute.bUpload) {
        enRead = StoreUpload(pstConn, stReq, stClient);
        if (enRead == BodyRead::kOk && !FillUploadCommand(pstHeader, stReq.pstCtIn)) {
            return SendEnvelope(pstConn, pstHeader, 500, VW_RESULT_NO_MEMORY);
        }
    }
    if (enRead == BodyRead::kTooLarge) {
        return SendEnvelope(pstConn, pstHeader, 413, VW_RESULT_PARAM_ERR);
    }
    if (enRead == BodyRead::kFailed) {
        return SendEnvelope(pstConn, pstHeader, stRoute.bUpload ? 500 : 400,
                            stRoute.bUpload ? VW_RESULT_FAIL : VW_RESULT_PARAM_ERR);
    }
    // The module reads the body as a C string; a NUL byte (never valid in JSON) would cut it.
    if (strBody.find('\0') != std::string::npos) {
        return SendEnvelope(pstConn, pstHeader, 400, VW_RESULT_PARAM_ERR);
    }

    std::string strResponse;
    tagHTTP_BUF_S stIn{nullptr, nullptr, &strBody[0]};  // NUL-terminated by std::string
    tagHTTP_BUF_S stOut{AppendToSink, &strResponse, nullptr};
    VW_RESULT_TYPE enFormat = VW_RESULT_OK;
    VW_RESULT_TYPE enResult = RunStages(stServer.astStages[uiRoute], pstHeader, &stClient,
                                        stReq.pstCtIn, &stIn, &stOut, &enFormat);
    if (!strResponse.empty()) {
        return SendJson(pstConn, HttpStatusOf(enResult), strResponse);
    }
    // Format wrote nothing: the envelope of the result. A Format that failed after a successful
    // request is not answered as a success.
    if (enResult == VW_RESULT_OK && enFormat != VW_RESULT_OK) {
        enResult = enFormat;
    }
    return SendEnvelope(pstConn, pstHeader, HttpStatusOf(enResult), enResult);
}

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

template <typename F>
bool ResolveStage(void *pvModule, const char *pcName, const char *pcModulePath, F *ppfStage) {
    *ppfStage = nullptr;
    if (pcName == nullptr) {
        return true;
    }
    void *pvSymbol = dlsym(pvModule, pcName);
    if (pvSymbol == nullptr) {
        fprintf(stderr, "%s: missing stage %s in %s\n", kProgram, pcName, pcModulePath);
        return false;
    }
    *ppfStage = reinterpret_cast<F>(pvSymbol);
    return true;
}

bool ResolveStages(void *pvModule, const char *pcModulePath, Server &stServer) {
    for (unsigned int i = 0; i < kDeskRouteCount; ++i) {
        const DeskRoute &stRoute = kDeskRoutes[i];
        Stages &stStages = stServer.astStages[i];
        const bool bPut = strcmp(stRoute.pcMethod, "PUT") == 0;
        if (bPut != (stRoute.pcPreProc != nullptr) || bPut != (stRoute.pcParse != nullptr) ||
            stRoute.pcRun == nullptr || stRoute.pcFormat == nullptr) {
            fprintf(stderr, "%s: route %s %s does not name the stages of its method\n", kProgram,
                    stRoute.pcMethod, stRoute.pcPath);
            return false;
        }
        if (!ResolveStage(pvModule, stRoute.pcPreProc, pcModulePath, &stStages.pfPreProc) ||
            !ResolveStage(pvModule, stRoute.pcParse, pcModulePath, &stStages.pfParse) ||
            !ResolveStage(pvModule, stRoute.pcRun, pcModulePath, &stStages.pfRun) ||
            !ResolveStage(pvModule, stRoute.pcFormat, pcModulePath, &stStages.pfFormat)) {
            return false;
        }
    }
    return true;
}

struct Options {
    std::string strModule = TALAPI_DESK_DEFAULT_MODULE;
    std::string strListen = "127.0.0.1";
    long lPort = 8080;
    std::string strRunDir = "./run";
    bool bLogStderr = false;
    long lDebugFlag = VW_DEBUG_FAILURES;
    long lThreads = 8;
    std::string strDocumentRoot;  // empty: no file serving
};

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

// 0 to go on, otherwise the process's exit code (help: -1 for 0, bad usage: 1).
int ParseOptions(int argc, char **argv, Options &stOpt) {
    struct ValuedOption {
        const char *pcName;
        std::string *pstrText;  // a text option, or
        long *plNumber;         // a number option in [lMin, lMax]
        long lMin;
        long lMax;
    };
    const ValuedOption astValued[] = {
        {"--module", &stOpt.strModule, nullptr, 0, 0},
        {"--listen", &stOpt.strListen, nullptr, 0, 0},
        {"--port", nullptr, &stOpt.lPort, 0, 65535},
        {"--run-dir", &stOpt.strRunDir, nullptr, 0, 0},
        {"--debug-flag", nullptr, &stOpt.lDebugFlag, VW_DEBUG_ALL, VW_DEBUG_OFF},
        {"--threads", nullptr, &stOpt.lThreads, 1, 1024},
        {"--document-root", &stOpt.strDocumentRoot, nullptr, 0, 0},
    };
    for (int i = 1; i < argc; ++i) {
        const std::string strArg = argv[i];
        if (strArg == "--help" || strArg == "-h") {
            fputs(kUsage, stdout);
            return -1;
        }
        if (strArg == "--log-stderr") {
            stOpt.bLogStderr = true;
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
        if (bOk && pstOption->pstrText != nullptr) {
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

}  // namespace

int main(int argc, char **argv) {
    Options stOpt;
    const int iUsage = ParseOptions(argc, argv, stOpt);
    if (iUsage != 0) {
        return iUsage < 0 ? 0 : iUsage;
    }
    std::error_code ec;
    if (!stOpt.strDocumentRoot.empty() &&
        !std::filesystem::is_directory(stOpt.strDocumentRoot, ec)) {
        fprintf(stderr, "%s: document root %s is not a directory\n", kProgram,
                stOpt.strDocumentRoot.c_str());
        return 1;
    }
    signal(SIGPIPE, SIG_IGN);
    g_enDebugFlag = static_cast<VW_DEBUG_FLAG_E>(stOpt.lDebugFlag);
    if (!OpenLogs(stOpt)) {
        return 1;
    }

    void *pvModule = dlopen(stOpt.strModule.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (pvModule == nullptr) {
        fprintf(stderr, "%s: cannot load module: %s\n", kProgram, dlerror());
        return 1;
    }
    static Server stServer;  // read-only once the server runs
    if (!ResolveStages(pvModule, stOpt.strModule.c_str(), stServer)) {
        dlclose(pvModule);
        return 1;
    }

    // SIGINT and SIGTERM are taken by sigwait below; blocked before CivetWeb starts its threads
    // so that none of them receives one.
    sigset_t stSignals;
    sigemptyset(&stSignals);
    sigaddset(&stSignals, SIGINT);
    sigaddset(&stSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stSignals, nullptr);

    const std::string strPorts = stOpt.strListen + ":" + std::to_string(stOpt.lPort);
    const std::string strThreads = std::to_string(stOpt.lThreads);
    std::vector<const char *> vecConfig = {"listening_ports", strPorts.c_str(), "num_threads",
                                           strThreads.c_str()};
    // For benchmarks: CivetWeb's file serving writes its Date header with gmtime() outside the
    // lock this server takes, so a file and an API response at the same moment may garble it.
    if (!stOpt.strDocumentRoot.empty()) {
        vecConfig.insert(vecConfig.end(), {"document_root", stOpt.strDocumentRoot.c_str(),
                                           "enable_directory_listing", "no"});
        stServer.bServeFiles = true;
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
        fprintf(stderr, "%s: cannot listen on %s: %s\n", kProgram, strPorts.c_str(),
                t_strFirstHttpMessage.empty() ? acError : t_strFirstHttpMessage.c_str());
        mg_exit_library();
        dlclose(pvModule);
        return 1;
    }
    mg_set_request_handler(pstContext, "/", HandleRequest, &stServer);

    mg_server_port stPort{};
    const long lPort = mg_get_server_ports(pstContext, 1, &stPort) == 1 ? stPort.port : stOpt.lPort;
    printf("%s listening on http://%s:%ld\n", kProgram, stOpt.strListen.c_str(), lPort);
    fflush(stdout);

    int iSignal = 0;
    while (sigwait(&stSignals, &iSignal) != 0) {
    }
    mg_stop(pstContext);
    mg_exit_library();
    dlclose(pvModule);
    return 0;
}
