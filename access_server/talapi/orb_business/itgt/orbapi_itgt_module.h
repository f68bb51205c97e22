// SPDX-License-Identifier: Apache-2.0
// The stage functions exported by liborbapiITGT.so, under their plain names. An access server
// finds them with dlsym by these names; each has the signature of its stage kind in
// talapi_types.h (PreProc, Parse, Run, Format).
#ifndef ORBAPI_ITGT_MODULE_H
#define ORBAPI_ITGT_MODULE_H

#include "talapi_types.h"

#define ORBAPI_ITGT_EXPORT __attribute__((visibility("default")))

extern "C" {

// System back language: GET, PUT
ORBAPI_ITGT_EXPORT VW_RESULT_TYPE RunGetITGTSysBackLanguage(tagHTTP_HEADER_S *pstHeader,
                                                            tagHTTP_CLIENT_S *pstClient,
                                                            tagHTTP_CNTENT_INTER_S *pstCtIn);
ORBAPI_ITGT_EXPORT VW_RESULT_TYPE FormatGetITGTSysBackLanguage(tagHTTP_HEADER_S *pstHeader,
                                                               VW_RESULT_TYPE enResult,
                                                               tagHTTP_CNTENT_INTER_S *pstCtInt,
                                                               tagHTTP_BUF_S *pstBuf);
ORBAPI_ITGT_EXPORT VW_RESULT_TYPE PreProcPutITGTSysBackLanguage(tagHTTP_HEADER_S *pstHeader,
                                                                tagUNIX_SOCKET_S *pstUnixSocket,
                                                                tagHTTP_CNTENT_INTER_S *pstCtIn);
ORBAPI_ITGT_EXPORT VW_RESULT_TYPE ParsePutITGTSysBackLanguage(tagHTTP_HEADER_S *pstHeader,
                                                              tagHTTP_BUF_S *pstBuf,
                                                              tagHTTP_CNTENT_INTER_S *pstCtIn);
ORBAPI_ITGT_EXPORT VW_RESULT_TYPE RunPutITGTSysBackLanguage(tagHTTP_HEADER_S *pstHeader,
                                                            tagHTTP_CLIENT_S *pstClient,
                                                            tagHTTP_CNTENT_INTER_S *pstCtIn);
ORBAPI_ITGT_EXPORT VW_RESULT_TYPE FormatPutITGTSysBackLanguage(tagHTTP_HEADER_S *pstHeader,
                                                               VW_RESULT_TYPE enResult,
                                                               tagHTTP_CNTENT_INTER_S *pstCtInt,
                                                               tagHTTP_BUF_S *pstBuf);

// Frame OSD: GET, PUT
ORBAPI_ITGT_EXPORT VW_RESULT_TYPE RunGetITGTFrameOSD(tagHTTP_HEADER_S *pstHeader,
                                                     tagHTTP_CLIENT_S *pstClient,
                                                     tagHTTP_CNTENT_INTER_S *pstCtIn);
ORBAPI_ITGT_EXPORT VW_RESULT_TYPE FormatGetITGTFrameOSD(tagHTTP_HEADER_S *pstHeader,
                                                        VW_RESULT_TYPE enResult,
                                                        tagHTTP_CNTENT_INTER_S *pstCtInt,
                                                        tagHTTP_BUF_S *pstBuf);
ORBAPI_ITGT_EXPORT VW_RESULT_TYPE PreProcPutITGTFrameOSD(tagHTTP_HEADER_S *pstHeader,
                                                         tagUNIX_SOCKET_S *pstUnixSocket,
                                                         tagHTTP_CNTENT_INTER_S *pstCtIn);
ORBAPI_ITGT_EXPORT VW_RESULT_TYPE ParsePutITGTFrameOSD(tagHTTP_HEADER_S *pstHeader,
                                                       tagHTTP_BUF_S *pstBuf,
                                                       tagHTTP_CNTENT_INTER_S *pstCtIn);
ORBAPI_ITGT_EXPORT VW_RESULT_TYPE RunPutITGTFrameOSD(tagHTTP_HEADER_S *pstHeader,
                                                     tagHTTP_CLIENT_S *pstClient,
                                                     tagHTTP_CNTENT_INTER_S *pstCtIn);
ORBAPI_ITGT_EXPORT VW_RESULT_TYPE FormatPutITGTFrameOSD(tagHTTP_HEADER_S *pstHeader,
                                                        VW_RESULT_TYPE enResult,
                                                        tagHTTP_CNTENT_INTER_S *pstCtInt,
                                                        tagHTTP_BUF_S *pstBuf);

// Intelligent capability: GET
ORBAPI_ITGT_EXPORT VW_RESULT_TYPE RunGetITGTCapability(tagHTTP_HEADER_S *pstHeader,
                                                       tagHTTP_CLIENT_S *pstClient,
                                                       tagHTTP_CNTENT_INTER_S *pstCtIn);
ORBAPI_ITGT_EXPORT VW_RESULT_TYPE FormatGetITGTCapability(tagHTTP_HEADER_S *pstHeader,
                                                          VW_RESULT_TYPE enResult,
                                                          tagHTTP_CNTENT_INTER_S *pstCtInt,
                                                          tagHTTP_BUF_S *pstBuf);

// Video vehicle detector: GET, PUT
ORBAPI_ITGT_EXPORT VW_RESULT_TYPE RunGetITGTVideoVehicleDetector(tagHTTP_HEADER_S *pstHeader,
                                                                 tagHTTP_CLIENT_S *pstClient,
                                                                 tagHTTP_CNTENT_INTER_S *pstCtIn);
ORBAPI_ITGT_EXPORT VW_RESULT_TYPE
FormatGetITGTVideoVehicleDetector(tagHTTP_HEADER_S *pstHeader, VW_RESULT_TYPE enResult,
                                  tagHTTP_CNTENT_INTER_S *pstCtInt, tagHTTP_BUF_S *pstBuf);
ORBAPI_ITGT_EXPORT VW_RESULT_TYPE PreProcPutITGTVideoVehicleDetector(
    tagHTTP_HEADER_S *pstHeader, tagUNIX_SOCKET_S *pstUnixSocket, tagHTTP_CNTENT_INTER_S *pstCtIn);
ORBAPI_ITGT_EXPORT VW_RESULT_TYPE ParsePutITGTVideoVehicleDetector(tagHTTP_HEADER_S *pstHeader,
                                                                   tagHTTP_BUF_S *pstBuf,
                                                                   tagHTTP_CNTENT_INTER_S *pstCtIn);
ORBAPI_ITGT_EXPORT VW_RESULT_TYPE RunPutITGTVideoVehicleDetector(tagHTTP_HEADER_S *pstHeader,
                                                                 tagHTTP_CLIENT_S *pstClient,
                                                                 tagHTTP_CNTENT_INTER_S *pstCtIn);
ORBAPI_ITGT_EXPORT VW_RESULT_TYPE
FormatPutITGTVideoVehicleDetector(tagHTTP_HEADER_S *pstHeader, VW_RESULT_TYPE enResult,
                                  tagHTTP_CNTENT_INTER_S *pstCtInt, tagHTTP_BUF_S *pstBuf);

// OSD capability: GET
ORBAPI_ITGT_EXPORT VW_RESULT_TYPE RunGetITGTOsdCapability(tagHTTP_HEADER_S *pstHeader,
                                                          tagHTTP_CLIENT_S *pstClient,
                                                          tagHTTP_CNTENT_INTER_S *pstCtIn);
ORBAPI_ITGT_EXPORT VW_RESULT_TYPE FormatGetITGTOsdCapability(tagHTTP_HEADER_S *pstHeader,
                                                             VW_RESULT_TYPE enResult,
                                                             tagHTTP_CNTENT_INTER_S *pstCtInt,
                                                             tagHTTP_BUF_S *pstBuf);

// Security code verification: POST of a JPEG picture
ORBAPI_ITGT_EXPORT VW_RESULT_TYPE RunPostITGTSecurityCodeVerify(tagHTTP_HEADER_S *pstHeader,
                                                                tagHTTP_CLIENT_S *pstClient,
                                                                tagHTTP_CNTENT_INTER_S *pstCtIn);
ORBAPI_ITGT_EXPORT VW_RESULT_TYPE FormatPostITGTSecurityCodeVerify(tagHTTP_HEADER_S *pstHeader,
                                                                   VW_RESULT_TYPE enResult,
                                                                   tagHTTP_CNTENT_INTER_S *pstCtInt,
                                                                   tagHTTP_BUF_S *pstBuf);
}

#endif
