// SPDX-License-Identifier: Apache-2.0
// Request bodies.
#include "desk_bodies.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <iterator>
#include <strings.h>
#include <unistd.h>

namespace {

constexpr std::size_t kJsonBodyMax = 64 * 1024;
constexpr std::size_t kUploadMax = 8 * 1024 * 1024;
constexpr long long kFormFraming = 64 * 1024;  // room for a form's part headers and boundaries
constexpr const char *kUploadTemplate = "/tmp/talapi-upload-XXXXXX";

// Reads the body chunk by chunk into pfSink, refusing more than uMax bytes: a declared length
// over the limit is refused unread. A body that ends before its declared length is incomplete:
// CivetWeb ends a read that waited longer than the request timeout as if the body had ended, or
// returns what it had after waiting that long for the rest.
template <typename Sink>
BodyRead ReadBody(mg_connection *pstConn, std::size_t uMax, std::chrono::milliseconds timeout,
                  Sink &&pfSink) {
    const long long llDeclared = mg_get_request_info(pstConn)->content_length;
    if (llDeclared > static_cast<long long>(uMax)) {
        return BodyRead::kTooLarge;
    }
    char acChunk[8192];
    std::size_t uTotal = 0;
    for (;;) {
        const std::size_t uLeft = uMax + 1 - uTotal;
        const auto start = std::chrono::steady_clock::now();
        const int iRead =
            mg_read(pstConn, acChunk, uLeft < sizeof(acChunk) ? uLeft : sizeof(acChunk));
        const bool bWaitedOut = std::chrono::steady_clock::now() - start >= timeout;
        if (iRead < 0) {  // chunked framing broken, or not finished in time
            return llDeclared < 0 ? BodyRead::kMalformed : BodyRead::kIncomplete;
        }
        if (iRead == 0) {
            const bool bWhole = llDeclared < 0 || uTotal == static_cast<std::size_t>(llDeclared);
            return bWhole ? BodyRead::kOk : BodyRead::kIncomplete;
        }
        uTotal += static_cast<std::size_t>(iRead);
        if (uTotal > uMax) {
            return BodyRead::kTooLarge;
        }
        if (bWaitedOut && static_cast<long long>(uTotal) < llDeclared) {
            return BodyRead::kIncomplete;
        }
        if (!pfSink(acChunk, static_cast<std::size_t>(iRead))) {
            return BodyRead::kStoreFailed;
        }
    }
}

bool WriteAll(int iFd, const char *pc, std::size_t u) {
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
}

// The media type of a Content-Type value, parameters left out, compared without case.
bool MediaTypeIs(const char *pcContentType, const char *pcType) {
    const std::size_t uLength = strlen(pcType);
    return strncasecmp(pcContentType, pcType, uLength) == 0 &&
           (pcContentType[uLength] == '\0' || pcContentType[uLength] == ';' ||
            pcContentType[uLength] == ' ');
}

// What CivetWeb's form handling found: the file parts and the size of the one it stored.
struct FormUpload {
    const char *pcPath;
    unsigned int uiFiles = 0;
    long long llSize = 0;
};

int OnFormField(const char *, const char *pcFileName, char *pcPath, size_t uPathLen, void *pvForm) {
    FormUpload &stForm = *static_cast<FormUpload *>(pvForm);
    if (pcFileName == nullptr || pcFileName[0] == '\0') {
        return MG_FORM_FIELD_STORAGE_SKIP;  // a plain field
    }
    if (++stForm.uiFiles > 1 || strlen(stForm.pcPath) >= uPathLen) {
        return MG_FORM_FIELD_STORAGE_ABORT;
    }
    memcpy(pcPath, stForm.pcPath, strlen(stForm.pcPath) + 1);
    return MG_FORM_FIELD_STORAGE_STORE;
}

int OnFormFileStored(const char *, long long llSize, void *pvForm) {
    static_cast<FormUpload *>(pvForm)->llSize = llSize;
    return MG_FORM_FIELD_HANDLE_NEXT;
}

}  // namespace

// The HTTP status and StatusCode of each BodyRead, in its order.
constexpr struct {
    int iStatus;
    VW_RESULT_TYPE enResult;
} kBodyAnswers[] = {{200, VW_RESULT_OK},        {413, VW_RESULT_PARAM_ERR},
                    {408, VW_RESULT_PARAM_ERR}, {400, VW_RESULT_PARAM_ERR},
                    {411, VW_RESULT_PARAM_ERR}, {415, VW_RESULT_PARAM_ERR},
                    {500, VW_RESULT_FAIL}};
static_assert(std::size(kBodyAnswers) == static_cast<std::size_t>(BodyRead::kStoreFailed) + 1,
              "one answer per BodyRead");

int HttpStatusOf(BodyRead enRead) {
    return kBodyAnswers[static_cast<int>(enRead)].iStatus;
}

VW_RESULT_TYPE ResultOf(BodyRead enRead) {
    return kBodyAnswers[static_cast<int>(enRead)].enResult;
}

BodyRead ReadJsonBody(mg_connection *pstConn, std::chrono::milliseconds timeout,
                      std::string &strBody) {
    const BodyRead enRead =
        ReadBody(pstConn, kJsonBodyMax, timeout, [&strBody](const char *pc, size_t u) {
            strBody.append(pc, u);
            return true;
        });
    if (enRead == BodyRead::kOk && strBody.find('\0') != std::string::npos) {
        return BodyRead::kMalformed;
    }
    return enRead;
}

UploadFile::~UploadFile() {
    Remove();
}

void UploadFile::Remove() {
    if (m_szPath[0] != '\0') {
        (void)unlink(m_szPath);
        m_szPath[0] = '\0';
    }
}

BodyRead UploadFile::Store(mg_connection *pstConn, std::chrono::milliseconds timeout) {
    const char *pcType = mg_get_header(pstConn, "Content-Type");
    const bool bForm = pcType != nullptr && MediaTypeIs(pcType, "multipart/form-data");
    if (pcType != nullptr && !bForm && !MediaTypeIs(pcType, "image/jpeg") &&
        !MediaTypeIs(pcType, "application/octet-stream")) {
        return BodyRead::kWrongType;
    }
    static_assert(sizeof(m_szPath) > sizeof("/tmp/talapi-upload-XXXXXX"), "the name fits");
    memcpy(m_szPath, kUploadTemplate, strlen(kUploadTemplate) + 1);
    const int iFd = mkstemp(m_szPath);
    if (iFd < 0) {
        m_szPath[0] = '\0';
        return BodyRead::kStoreFailed;
    }
    if (bForm) {
        (void)close(iFd);  // CivetWeb writes the file part into it by name
        return StoreForm(pstConn);
    }
    const BodyRead enRead = ReadBody(pstConn, kUploadMax, timeout, [iFd](const char *pc, size_t u) {
        return WriteAll(iFd, pc, u);
    });
    return close(iFd) == 0 ? enRead : BodyRead::kStoreFailed;
}

BodyRead UploadFile::StoreForm(mg_connection *pstConn) {
    const long long llDeclared = mg_get_request_info(pstConn)->content_length;
    if (llDeclared < 0) {
        return BodyRead::kLengthRequired;
    }
    if (llDeclared > static_cast<long long>(kUploadMax) + kFormFraming) {
        return BodyRead::kTooLarge;
    }
    FormUpload stForm;
    stForm.pcPath = m_szPath;
    mg_form_data_handler stHandler{OnFormField, nullptr, OnFormFileStored, &stForm};
    if (mg_handle_form_request(pstConn, &stHandler) < 0 || stForm.uiFiles != 1) {
        return BodyRead::kMalformed;
    }
    return stForm.llSize > static_cast<long long>(kUploadMax) ? BodyRead::kTooLarge : BodyRead::kOk;
}
