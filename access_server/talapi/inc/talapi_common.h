// SPDX-License-Identifier: Apache-2.0
// Services of the access server's common library (libtalapicommon) that business modules call:
// backend messaging, query parameters and status responses. The JSON value operations are in
// talapi_json.h, logging in talapi_log.h.
#ifndef TALAPI_COMMON_H
#define TALAPI_COMMON_H

#include <string>

#include "talapi_json.h"
#include "talapi_log.h"
#include "talapi_types.h"

// Status of RestSendSynUnixMsg: 0 when the exchange completed, one of these otherwise.
enum TALAPI_SYN_STATUS_E : long long {
    TALAPI_SYN_OK = 0,
    TALAPI_SYN_ERR_PARAM = 1,      // null argument or a peer path that does not fit
    TALAPI_SYN_ERR_CONNECT = 2,    // no daemon at the peer path, or it refused
    TALAPI_SYN_ERR_TIMEOUT = 3,    // the exchange did not complete within the socket's timeout
    TALAPI_SYN_ERR_IO = 4,         // the request could not be sent
    TALAPI_SYN_ERR_CLOSED = 5,     // the daemon closed the connection before replying
    TALAPI_SYN_ERR_SHORT = 6,      // the daemon closed the connection in the middle of a reply
    TALAPI_SYN_ERR_MALFORMED = 7,  // the reply is not a reply to this request
};

// One synchronous exchange with the daemon at pcPeerPath: sends enCmd with the whole body and
// fills pstReply (payload bytes the daemon did not send are zero).
long long RestSendSynUnixMsg(const char *pcPeerPath, VW_MSG_TYPE enMsgType, VW_CMD_TYPE enCmd,
                             const vwCmdBody *pstBody, tagUNIX_SOCKET_S *pstUnixSocket,
                             MSG_DATA *pstReply, unsigned long long ullValue);

// Reads a configuration. On a completed exchange whose Result is 0, *ppvDest receives a malloc'd
// copy of the whole reply payload (VW_CMD_BODY_SIZE bytes, so never smaller than any record);
// it then belongs to the request. Otherwise *ppvDest is left as it was and the result is the
// reply's Result, VW_RESULT_SEND_FAIL, VW_RESULT_NO_MEMORY or VW_RESULT_FAIL (null argument).
VW_RESULT_TYPE GetCommon(tagHTTP_HEADER_S *pstHeader, tagUNIX_SOCKET_S *pstUnixSocket,
                         VW_CMD_TYPE enCmd, const vwCmdBody *pstBody, void **ppvDest,
                         unsigned long long ullValue, const char *pcPeerPath);

// Writes a configuration: sends the uiLen bytes of the record as the command body. Returns the
// reply's Result, VW_RESULT_SEND_FAIL, VW_RESULT_PARAM_ERR (length above VW_CMD_BODY_SIZE,
// nothing sent) or VW_RESULT_FAIL (null argument).
VW_RESULT_TYPE SetCommon(tagHTTP_HEADER_S *pstHeader, void *pvRecord, unsigned int uiLen,
                         tagUNIX_SOCKET_S *pstUnixSocket, VW_CMD_TYPE enCmd,
                         unsigned long long ullValue, const char *pcPeerPath);

// Query parameter of the request: exact, case-sensitive key; key and value percent-decoded
// ('+' is a space); the first occurrence counts. Numbers are decimal digits only, in range.
// A text must fit iCapacity with its NUL. 0 on success; VW_RESULT_PARAM_ERR when the key is
// missing or the value does not convert (the destination is then untouched); VW_RESULT_FAIL
// for a null argument.
template <typename T>
VW_RESULT_TYPE GetURIQueryParamByKey(tagHTTP_HEADER_S *pstHeader, std::string strKey, T *pDest);
template <typename T>
VW_RESULT_TYPE GetURIQueryParamByKey(tagHTTP_HEADER_S *pstHeader, std::string strKey, T *pDest,
                                     int iCapacity);

template <>
VW_RESULT_TYPE GetURIQueryParamByKey<unsigned long long>(tagHTTP_HEADER_S *pstHeader,
                                                         std::string strKey,
                                                         unsigned long long *pDest);
template <>
VW_RESULT_TYPE GetURIQueryParamByKey<unsigned int>(tagHTTP_HEADER_S *pstHeader, std::string strKey,
                                                   unsigned int *pDest);
template <>
VW_RESULT_TYPE GetURIQueryParamByKey<char>(tagHTTP_HEADER_S *pstHeader, std::string strKey,
                                           char *pDest, int iCapacity);

// The response envelope of this request and result: RequestURL is the header's url, StatusCode
// the result, StatusString a fixed English word for the result; ullHttpStatus the HTTP status
// the host answers it with.
TALAPI_RESPONSE FillResponseStatusParam(tagHTTP_HEADER_S *pstHeader, VW_RESULT_TYPE enResult);

// Writes the envelope of the result through the buffer's Copy2Buf. 0 when stored; -1 for a
// null header or buffer, an envelope that cannot be encoded, or Copy2Buf returning -1.
VW_RESULT_TYPE FormatCommonStatus(tagHTTP_HEADER_S *pstHeader, VW_RESULT_TYPE enResult,
                                  tagHTTP_CNTENT_INTER_S *pstCtInt, tagHTTP_BUF_S *pstBuf);

#endif
