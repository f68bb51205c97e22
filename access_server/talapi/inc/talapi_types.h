// SPDX-License-Identifier: Apache-2.0
// Records, result codes and backend message formats shared by the access server and the
// business modules it loads. Every layout here is a wire or ABI contract: sizes and offsets are
// checked at compile time so that a slip fails the build on every target (x86-64 and armhf).
#ifndef TALAPI_TYPES_H
#define TALAPI_TYPES_H

#include <cstddef>

// Result code of every stage and host service. Values other than the named ones come from the
// host or the backend daemon and are passed through unchanged.
enum VW_RESULT_TYPE : int {
    VW_RESULT_OK = 0,
    VW_RESULT_FAIL = -1,
    VW_RESULT_SEND_FAIL = 1,
    VW_RESULT_PARAM_ERR = 4,
    VW_RESULT_NOT_SUPPORT = 6,
    VW_RESULT_NO_MEMORY = 18,
};
static_assert(sizeof(VW_RESULT_TYPE) == 4, "results are 32-bit");

// Backend command numbers; one number serves both reading and writing a configuration.
enum VW_CMD_TYPE : int {
    VW_CMD_SYS_BACK_LANGUAGE = 54,
    VW_CMD_VLPR_PIC_OSD = 20006,
    VW_CMD_TRAFFIC_DOME_PIC_OSD = 20099,
    VW_CMD_VIDEO_VEHICLE_DETECTOR = 20100,
    VW_CMD_SECURITY_CODE_VERIFY = 20101,
    VW_CMD_ITGT_CAPABILITY = 31110,
    VW_CMD_ITGT_OSD_CAPABILITY = 31111,
};
static_assert(sizeof(VW_CMD_TYPE) == 4, "commands are 32-bit");

// Kind of a backend message; every exchange of the business modules is a synchronous request.
enum VW_MSG_TYPE : int {
    VW_MSG_SYN_REQUEST = 0,
};
static_assert(sizeof(VW_MSG_TYPE) == 4, "message kinds are 32-bit");

constexpr std::size_t VW_CMD_BODY_SIZE = 21208;
constexpr std::size_t VW_MSG_HEAD_SIZE = 200;

// Parameters of one backend command. Zeroed whole before use; commands that address a channel
// carry it first, further parameters follow as each command defines them. A write command's
// body is the configuration record itself.
struct vwCmdBody {
    unsigned long long ulChannelId;
    unsigned char aucParam[VW_CMD_BODY_SIZE - 8];
};
static_assert(sizeof(vwCmdBody) == 21208, "vwCmdBody is 21208 bytes");
static_assert(offsetof(vwCmdBody, ulChannelId) == 0, "channel first");
static_assert(offsetof(vwCmdBody, aucParam) == 8, "further parameters at 8");

// Reply of one synchronous exchange: a 200-byte head, then the command's result record.
// The head fields before recvMsg are the transport's (see talapi_unix_socket.h).
struct MSG_DATA {
    unsigned int uiMagic;
    unsigned int enMsgType;
    unsigned int enCmdType;
    unsigned int uiDataLen;
    unsigned long long ullValue;
    unsigned char aucHostHead[140];
    int recvMsg;
    unsigned char aucReserved1[8];
    int Result;
    unsigned char aucReserved2[20];
    unsigned char aucPayload[VW_CMD_BODY_SIZE];
};
static_assert(sizeof(MSG_DATA) == 21408, "MSG_DATA is 21408 bytes");
static_assert(alignof(MSG_DATA) == 8, "MSG_DATA is 8-aligned");
static_assert(offsetof(MSG_DATA, recvMsg) == 164, "recvMsg at 164");
static_assert(offsetof(MSG_DATA, Result) == 176, "Result at 176");
static_assert(offsetof(MSG_DATA, aucPayload) == VW_MSG_HEAD_SIZE, "payload at 200");

constexpr std::size_t HTTP_METHOD_LEN = 12;
constexpr std::size_t HTTP_URL_LEN = 256;
constexpr std::size_t HTTP_USER_NAME_LEN = 64;
constexpr std::size_t HTTP_CLIENT_IP_LEN = 64;
constexpr std::size_t HTTP_QUERY_LEN = 2048;
constexpr std::size_t HTTP_PACKET_NAME_LEN = 129;

// The parsed request, filled by the host before the first stage; stages only read it. All texts
// are NUL-terminated. The query string (without '?') is read only by the host's services.
struct tagHTTP_HEADER_S {
    char method[HTTP_METHOD_LEN];
    char url[HTTP_URL_LEN];             // the path, without the query
    char userName[HTTP_USER_NAME_LEN];  // the authenticated user, for the operation log
    char clientIp[HTTP_CLIENT_IP_LEN];
    unsigned long long clientPort;
    char queryString[HTTP_QUERY_LEN];  // read through GetURIQueryParamByKey
};
static_assert(offsetof(tagHTTP_HEADER_S, method) == 0, "the header begins with method");
static_assert(offsetof(tagHTTP_HEADER_S, url) == HTTP_METHOD_LEN, "url follows method");
static_assert(offsetof(tagHTTP_HEADER_S, userName) > offsetof(tagHTTP_HEADER_S, url), "order");
static_assert(offsetof(tagHTTP_HEADER_S, clientIp) > offsetof(tagHTTP_HEADER_S, userName), "order");
static_assert(offsetof(tagHTTP_HEADER_S, clientPort) > offsetof(tagHTTP_HEADER_S, clientIp),
              "order");
static_assert(sizeof(tagHTTP_HEADER_S::clientPort) == 8, "clientPort is unsigned 64-bit");

// The records one request's stages hand to each other. All three start null; each points to a
// malloc'd record that belongs to the request and is released by the access server with free.
struct tagHTTP_CNTENT_INTER_S {
    void *pPreProcOut;
    void *pParseOut;
    void *pRunOut;
};
static_assert(offsetof(tagHTTP_CNTENT_INTER_S, pPreProcOut) == 0, "pPreProcOut first");
static_assert(offsetof(tagHTTP_CNTENT_INTER_S, pParseOut) == sizeof(void *), "then pParseOut");
static_assert(offsetof(tagHTTP_CNTENT_INTER_S, pRunOut) == 2 * sizeof(void *), "then pRunOut");

// A body buffer: the request body for a Parse stage, the response sink for a Format stage.
// Copy2Buf copies uiLen bytes of text into the response and returns -1 on failure.
struct tagHTTP_BUF_S {
    int (*Copy2Buf)(tagHTTP_BUF_S *pstBuf, const char *pcData, unsigned int uiLen);  // host's
    void *pvHostSink;  // host's business: where Copy2Buf appends
    char *pBody;       // the request body, NUL-terminated, for a Parse stage
};
static_assert(offsetof(tagHTTP_BUF_S, Copy2Buf) == 0, "Copy2Buf first");
static_assert(offsetof(tagHTTP_BUF_S, pBody) == 2 * sizeof(void *), "one host member between");

// The host's connection to the backend daemon; opaque to business modules.
struct tagUNIX_SOCKET_S;

// The client connection of one request.
struct tagHTTP_CLIENT_S {
    char packetName[HTTP_PACKET_NAME_LEN];  // host's business: the file holding an upload
    tagUNIX_SOCKET_S *pstUnixSocket;        // host's business: this thread's backend connection
};
static_assert(offsetof(tagHTTP_CLIENT_S, packetName) == 0, "packetName first");
static_assert(offsetof(tagHTTP_CLIENT_S, pstUnixSocket) >= HTTP_PACKET_NAME_LEN,
              "pstUnixSocket after packetName");

// The four stage kinds a business module exports, found by the access server by name.
typedef VW_RESULT_TYPE (*TALAPI_PREPROC_STAGE_PF)(tagHTTP_HEADER_S *pstHeader,
                                                  tagUNIX_SOCKET_S *pstUnixSocket,
                                                  tagHTTP_CNTENT_INTER_S *pstCtIn);
typedef VW_RESULT_TYPE (*TALAPI_PARSE_STAGE_PF)(tagHTTP_HEADER_S *pstHeader, tagHTTP_BUF_S *pstBuf,
                                                tagHTTP_CNTENT_INTER_S *pstCtIn);
typedef VW_RESULT_TYPE (*TALAPI_RUN_STAGE_PF)(tagHTTP_HEADER_S *pstHeader,
                                              tagHTTP_CLIENT_S *pstClient,
                                              tagHTTP_CNTENT_INTER_S *pstCtIn);
typedef VW_RESULT_TYPE (*TALAPI_FORMAT_STAGE_PF)(tagHTTP_HEADER_S *pstHeader,
                                                 VW_RESULT_TYPE enResult,
                                                 tagHTTP_CNTENT_INTER_S *pstCtInt,
                                                 tagHTTP_BUF_S *pstBuf);

// The response envelope, made by FillResponseStatusParam.
struct TALAPI_RESPONSE_STATUS {
    char RequestURL[256];
    long long StatusCode;
    char StatusString[128];
};
static_assert(sizeof(TALAPI_RESPONSE_STATUS) == 392, "envelope status layout");

struct TALAPI_RESPONSE {
    unsigned long long ullHttpStatus;  // the HTTP status the host answers this result with
    TALAPI_RESPONSE_STATUS ResponseStatus;
};
static_assert(offsetof(TALAPI_RESPONSE, ResponseStatus) == 8, "8-byte leading member");

#endif
