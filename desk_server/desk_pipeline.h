// SPDX-License-Identifier: Apache-2.0
// The journey of a request: routing, access, addressing, body, then the module's stages in the
// access server's calling order, and the response.
#ifndef TALAPI_DESK_PIPELINE_H
#define TALAPI_DESK_PIPELINE_H

#include <chrono>

#include <civetweb.h>

#include "desk_auth.h"
#include "desk_conditional.h"
#include "desk_routes.h"
#include "talapi_types.h"

struct Stages {
    TALAPI_PREPROC_STAGE_PF pfPreProc;
    TALAPI_PARSE_STAGE_PF pfParse;
    TALAPI_RUN_STAGE_PF pfRun;
    TALAPI_FORMAT_STAGE_PF pfFormat;
};

// What every request reads; set up before the server starts, then read-only but for the locks.
struct DeskServer {
    Stages astStages[kDeskRouteCount];  // by the index of the route in kDeskRoutes
    bool bServeFiles = false;           // paths no route names go to CivetWeb's file serving
    bool bRequireIfMatch = false;       // a PUT without If-Match is refused with 428
    std::chrono::milliseconds requestTimeout{10000};  // CivetWeb's, for each read
    AuthSettings stAuth;
    InstanceLocks stWriters;
};

// CivetWeb's request handler; pvServer is the DeskServer.
int HandleRequest(mg_connection *pstConn, void *pvServer);

#endif
