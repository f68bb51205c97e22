// SPDX-License-Identifier: Apache-2.0
// Request bodies: a JSON body read into memory, an upload streamed into a file. Either arrives
// whole within the request timeout or is refused; nothing partial reaches a stage.
#ifndef TALAPI_DESK_BODIES_H
#define TALAPI_DESK_BODIES_H

#include <chrono>
#include <string>

#include <civetweb.h>

#include "talapi_types.h"

enum class BodyRead {
    kOk,
    kTooLarge,        // 413
    kIncomplete,      // 408: shorter than its Content-Length when the client fell silent
    kMalformed,       // 400: a chunked or multipart framing that is broken or never ends
    kLengthRequired,  // 411: a form upload without Content-Length
    kWrongType,       // 415: an upload neither raw picture bytes nor a form
    kStoreFailed,     // 500: the upload file cannot be made or written
};

// The HTTP status and envelope StatusCode of a refused body.
int HttpStatusOf(BodyRead enRead);
VW_RESULT_TYPE ResultOf(BodyRead enRead);

// Reads a JSON body of at most 64 KiB; timeout is the request timeout CivetWeb applies to each
// read. A NUL byte, never valid in JSON, is malformed: the module reads the body as a C string
// and would see it cut short.
BodyRead ReadJsonBody(mg_connection *pstConn, std::chrono::milliseconds timeout,
                      std::string &strBody);

// A file under /tmp holding an upload, named in the client record's packetName. Removed before
// the response is sent (Remove), or at the latest when the request ends, unless the module has
// moved it away: a client that has its answer never finds the upload still there.
class UploadFile {
  public:
    UploadFile() = default;
    ~UploadFile();
    UploadFile(const UploadFile &) = delete;
    UploadFile &operator=(const UploadFile &) = delete;

    // Stores the upload: the raw body (image/jpeg, application/octet-stream or no type), or the
    // one file part of a multipart/form-data body, at most 8 MiB either way.
    BodyRead Store(mg_connection *pstConn, std::chrono::milliseconds timeout);
    const char *Path() const { return m_szPath; }
    void Remove();

  private:
    BodyRead StoreForm(mg_connection *pstConn);
    char m_szPath[HTTP_PACKET_NAME_LEN] = "";
};

#endif
