// SPDX-License-Identifier: Apache-2.0
// Query parameters: the three getters on any query string and key, against a small model of the
// query rules. Input: one byte giving the key's length (0 to 63), the key, then the query string.
#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "talapi_common.h"

namespace {

void Check(bool bHolds, const char *pcWhat) {
    if (!bHolds) {
        fprintf(stderr, "broken invariant: %s\n", pcWhat);
        abort();
    }
}

// %XX and '+' decoded; nothing for a malformed escape or a decoded NUL.
std::optional<std::string> ModelDecode(std::string_view in) {
    std::string out;
    for (size_t i = 0; i < in.size(); ++i) {
        if (in[i] == '%') {
            if (i + 2 >= in.size() || !isxdigit(static_cast<unsigned char>(in[i + 1])) ||
                !isxdigit(static_cast<unsigned char>(in[i + 2]))) {
                return std::nullopt;
            }
            char c = static_cast<char>(std::stoi(std::string(in.substr(i + 1, 2)), nullptr, 16));
            if (c == '\0') {
                return std::nullopt;
            }
            out += c;
            i += 2;
        } else {
            out += in[i] == '+' ? ' ' : in[i];
        }
    }
    return out;
}

// The decoded value of the first pair whose decoded key is the key; nothing when there is none
// or that value does not decode.
std::optional<std::string> ModelFind(std::string_view query, const std::string &key) {
    while (!query.empty()) {
        size_t amp = query.find('&');
        std::string_view pair = query.substr(0, amp);
        query = amp == std::string_view::npos ? std::string_view() : query.substr(amp + 1);
        size_t eq = pair.find('=');
        std::optional<std::string> decodedKey = ModelDecode(pair.substr(0, eq));
        if (pair.empty() || !decodedKey || *decodedKey != key) {
            continue;
        }
        return ModelDecode(eq == std::string_view::npos ? std::string_view() : pair.substr(eq + 1));
    }
    return std::nullopt;
}

// The model's number: one or more decimal digits, at most max.
std::optional<unsigned long long> ModelNumber(const std::optional<std::string> &text,
                                              unsigned long long max) {
    if (!text || text->empty() || text->find_first_not_of("0123456789") != std::string::npos) {
        return std::nullopt;
    }
    unsigned long long value = 0;
    for (char c : *text) {
        unsigned digit = static_cast<unsigned>(c - '0');
        if (value > (max - digit) / 10) {
            return std::nullopt;
        }
        value = value * 10 + digit;
    }
    return value;
}

template <typename T>
void CheckNumber(tagHTTP_HEADER_S *pstHeader, const std::string &key,
                 const std::optional<std::string> &expectedText) {
    constexpr T kUnset = static_cast<T>(0xA5A5A5A5A5A5A5A5ULL);
    T value = kUnset;
    VW_RESULT_TYPE enResult = GetURIQueryParamByKey<T>(pstHeader, key, &value);
    std::optional<unsigned long long> expected =
        ModelNumber(expectedText, std::numeric_limits<T>::max());
    if (expected) {
        Check(enResult == VW_RESULT_OK && value == *expected, "a number is read");
    } else {
        Check(enResult == VW_RESULT_PARAM_ERR && value == kUnset, "a failure leaves the number");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pucData, size_t size) {
    if (size == 0) {
        return 0;
    }
    size_t keyLen = std::min<size_t>(pucData[0] & 63, size - 1);
    std::string key(reinterpret_cast<const char *>(pucData + 1), keyLen);
    std::string_view query(reinterpret_cast<const char *>(pucData + 1 + keyLen), size - 1 - keyLen);
    query = query.substr(0, std::min(query.find('\0'), HTTP_QUERY_LEN - 1));

    // On the heap, so that a read past the query string is caught.
    auto pstHeader = std::make_unique<tagHTTP_HEADER_S>();
    memcpy(pstHeader->queryString, query.data(), query.size());
    std::optional<std::string> expected = ModelFind(query, key);

    CheckNumber<unsigned long long>(pstHeader.get(), key, expected);
    CheckNumber<unsigned int>(pstHeader.get(), key, expected);

    constexpr int kCapacity = 40;
    char acText[kCapacity + 8];
    memset(acText, 0xA5, sizeof(acText));
    VW_RESULT_TYPE enResult = GetURIQueryParamByKey<char>(pstHeader.get(), key, acText, kCapacity);
    if (expected && expected->size() < static_cast<size_t>(kCapacity)) {
        Check(enResult == VW_RESULT_OK && strcmp(acText, expected->c_str()) == 0,
              "a text that fits is read");
        size_t used = expected->size() + 1;
        Check(std::all_of(acText + used, acText + sizeof(acText),
                          [](char c) { return c == static_cast<char>(0xA5); }),
              "nothing is written past the text");
    } else {
        Check(enResult == VW_RESULT_PARAM_ERR, "a missing or too long text fails");
        Check(std::all_of(acText, acText + sizeof(acText),
                          [](char c) { return c == static_cast<char>(0xA5); }),
              "a failure leaves the text");
    }
    return 0;
}
