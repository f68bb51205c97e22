// SPDX-License-Identifier: Apache-2.0
// Query parameters of a request, read from the header's raw query string ("k=v&k2=v2").
// Keys and values are percent-decoded into stack buffers; nothing is allocated.
#include "talapi_common.h"

#include <cstring>
#include <limits>

namespace {

// A decoded text never grows, so one query string's length (plus the NUL) bounds it.
struct QueryText {
    char ac[HTTP_QUERY_LEN + 1];
    size_t len;
};

int HexValue(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

// Decodes %XX and '+'. False for a malformed escape or a decoded NUL.
bool Decode(const char *pcIn, size_t len, QueryText &stOut) {
    size_t out = 0;
    for (size_t i = 0; i < len; ++i) {
        char c = pcIn[i];
        if (c == '+') {
            c = ' ';
        } else if (c == '%') {
            int hi = len - i >= 3 ? HexValue(pcIn[i + 1]) : -1;
            int lo = len - i >= 3 ? HexValue(pcIn[i + 2]) : -1;
            if (hi < 0 || lo < 0 || (hi == 0 && lo == 0)) {
                return false;
            }
            c = static_cast<char>(hi * 16 + lo);
            i += 2;
        }
        stOut.ac[out++] = c;
    }
    stOut.ac[out] = '\0';
    stOut.len = out;
    return true;
}

// Decodes into stValue the value of the first pair whose decoded key is strKey. False when there
// is no such pair or its value does not decode (that pair still decides: later ones are not read).
bool FindValue(const tagHTTP_HEADER_S &stHeader, const std::string &strKey, QueryText &stValue) {
    const char *pcQuery = stHeader.queryString;
    size_t queryLen = strnlen(pcQuery, HTTP_QUERY_LEN);
    QueryText stKey;
    for (size_t pos = 0; pos < queryLen;) {
        const char *pcPair = pcQuery + pos;
        const char *pcAmp = static_cast<const char *>(memchr(pcPair, '&', queryLen - pos));
        size_t pairLen = pcAmp == nullptr ? queryLen - pos : static_cast<size_t>(pcAmp - pcPair);
        pos += pairLen + 1;
        const char *pcEq = static_cast<const char *>(memchr(pcPair, '=', pairLen));
        size_t keyLen = pcEq == nullptr ? pairLen : static_cast<size_t>(pcEq - pcPair);
        if (pairLen == 0 || !Decode(pcPair, keyLen, stKey) || stKey.len != strKey.size() ||
            memcmp(stKey.ac, strKey.data(), stKey.len) != 0) {
            continue;
        }
        size_t valueStart = pcEq == nullptr ? pairLen : keyLen + 1;
        return Decode(pcPair + valueStart, pairLen - valueStart, stValue);
    }
    return false;
}

// One or more ASCII digits, in range of T.
template <typename T>
bool ParseDecimal(const QueryText &stText, T *pValue) {
    if (stText.len == 0) {
        return false;
    }
    T value = 0;
    for (size_t i = 0; i < stText.len; ++i) {
        char c = stText.ac[i];
        if (c < '0' || c > '9') {
            return false;
        }
        T digit = static_cast<T>(c - '0');
        if (value > (std::numeric_limits<T>::max() - digit) / 10) {
            return false;
        }
        value = static_cast<T>(value * 10 + digit);
    }
    *pValue = value;
    return true;
}

template <typename T>
VW_RESULT_TYPE GetNumber(tagHTTP_HEADER_S *pstHeader, const std::string &strKey, T *pDest) {
    if (pstHeader == nullptr || pDest == nullptr) {
        return VW_RESULT_FAIL;
    }
    QueryText stValue;
    T value;
    if (!FindValue(*pstHeader, strKey, stValue) || !ParseDecimal(stValue, &value)) {
        return VW_RESULT_PARAM_ERR;
    }
    *pDest = value;
    return VW_RESULT_OK;
}

}  // namespace

template <>
VW_RESULT_TYPE GetURIQueryParamByKey<unsigned long long>(tagHTTP_HEADER_S *pstHeader,
                                                         std::string strKey,
                                                         unsigned long long *pDest) {
    return GetNumber(pstHeader, strKey, pDest);
}

template <>
VW_RESULT_TYPE GetURIQueryParamByKey<unsigned int>(tagHTTP_HEADER_S *pstHeader, std::string strKey,
                                                   unsigned int *pDest) {
    return GetNumber(pstHeader, strKey, pDest);
}

template <>
VW_RESULT_TYPE GetURIQueryParamByKey<char>(tagHTTP_HEADER_S *pstHeader, std::string strKey,
                                           char *pDest, int iCapacity) {
    if (pstHeader == nullptr || pDest == nullptr) {
        return VW_RESULT_FAIL;
    }
    QueryText stValue;
    if (iCapacity <= 0 || !FindValue(*pstHeader, strKey, stValue) ||
        stValue.len >= static_cast<size_t>(iCapacity)) {
        return VW_RESULT_PARAM_ERR;
    }
    memcpy(pDest, stValue.ac, stValue.len + 1);
    return VW_RESULT_OK;
}
