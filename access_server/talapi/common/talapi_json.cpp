// SPDX-License-Identifier: Apache-2.0
// JSON value operations of the common library, over json-c values.
#include "talapi_json.h"

#include <json-c/json_visit.h>

#include <climits>
#include <cmath>
#include <cstring>

namespace {

bool IsJsonSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// Length of the well-formed UTF-8 character at pc (RFC 3629: shortest form, no surrogates,
// at most U+10FFFF), 0 when it is not one.
size_t Utf8Length(const unsigned char *pc) {
    unsigned char c = pc[0];
    size_t len;
    unsigned char lo = 0x80;
    unsigned char hi = 0xBF;
    if (c < 0x80) {
        return 1;
    } else if (c >= 0xC2 && c <= 0xDF) {
        len = 2;
    } else if (c >= 0xE0 && c <= 0xEF) {
        len = 3;
        lo = c == 0xE0 ? 0xA0 : 0x80;
        hi = c == 0xED ? 0x9F : 0xBF;
    } else if (c >= 0xF0 && c <= 0xF4) {
        len = 4;
        lo = c == 0xF0 ? 0x90 : 0x80;
        hi = c == 0xF4 ? 0x8F : 0xBF;
    } else {
        return 0;
    }
    if (pc[1] < lo || pc[1] > hi) {
        return 0;
    }
    for (size_t i = 2; i < len; ++i) {
        if ((pc[i] & 0xC0) != 0x80) {
            return 0;
        }
    }
    return len;
}

// Length of the RFC 8259 number at pc, 0 when there is none.
size_t NumberLength(const char *pc) {
    const char *p = pc;
    if (*p == '-') {
        ++p;
    }
    if (*p == '0') {
        ++p;
    } else if (IsDigit(*p)) {
        while (IsDigit(*p)) {
            ++p;
        }
    } else {
        return 0;
    }
    if (*p == '.') {
        if (!IsDigit(*++p)) {
            return 0;
        }
        while (IsDigit(*p)) {
            ++p;
        }
    }
    if (*p == 'e' || *p == 'E') {
        ++p;
        if (*p == '+' || *p == '-') {
            ++p;
        }
        if (!IsDigit(*p)) {
            return 0;
        }
        while (IsDigit(*p)) {
            ++p;
        }
    }
    return static_cast<size_t>(p - pc);
}

// json-c's strict mode still takes NaN and Infinity, single-quoted keys, "1.", raw control
// characters in strings and some ill-formed UTF-8. This pass checks the tokens against
// RFC 8259 and leaves structure (brackets, separators, depth) to json-c.
bool TokensAreStrict(const char *pcText) {
    const char *p = pcText;
    while (*p != '\0') {
        char c = *p;
        if (IsJsonSpace(c) || strchr("{}[]:,", c) != nullptr) {
            ++p;
        } else if (c == '"') {
            for (++p; *p != '"'; ++p) {
                if (*p == '\0') {
                    return true;  // unterminated; json-c reports it
                }
                if (static_cast<unsigned char>(*p) < 0x20) {
                    return false;
                }
                if (*p == '\\') {
                    ++p;  // json-c checks the escape itself; only its first byte matters here
                    if (static_cast<unsigned char>(*p) < 0x20) {
                        return *p == '\0';
                    }
                    continue;
                }
                size_t len = Utf8Length(reinterpret_cast<const unsigned char *>(p));
                if (len == 0) {
                    return false;
                }
                p += len - 1;
            }
            ++p;
        } else if (strncmp(p, "true", 4) == 0 || strncmp(p, "null", 4) == 0) {
            p += 4;
        } else if (strncmp(p, "false", 5) == 0) {
            p += 5;
        } else {
            size_t len = NumberLength(p);
            if (len == 0) {
                return false;
            }
            p += len;
        }
    }
    return true;
}

// Numbers beyond the range of a double come out of json-c as infinities; they are refused.
int FindNonFinite(json_object *pstItem, int, json_object *, const char *, size_t *, void *pvFound) {
    if (json_object_is_type(pstItem, json_type_double) &&
        !std::isfinite(json_object_get_double(pstItem))) {
        *static_cast<bool *>(pvFound) = true;
        return JSON_C_VISIT_RETURN_STOP;
    }
    return JSON_C_VISIT_RETURN_CONTINUE;
}

}  // namespace

json_object *cJSON_CreateObject() {
    return json_object_new_object();
}

json_object *cJSON_CreateArray() {
    return json_object_new_array();
}

json_object *cJSON_CreateNumber(int iValue) {
    return json_object_new_int(iValue);
}

json_object *cJSON_CreateNumber(unsigned int uiValue) {
    return json_object_new_int64(uiValue);
}

json_object *cJSON_CreateNumber(long long llValue) {
    return json_object_new_int64(llValue);
}

json_object *cJSON_CreateNumber(unsigned long long ullValue) {
    return json_object_new_uint64(ullValue);
}

json_object *cJSON_CreateString(const char *pcText) {
    return pcText == nullptr ? nullptr : json_object_new_string(pcText);
}

// The item belongs to the object from here on: stored, or released when it cannot be. An object
// added to itself is refused and left alone, as releasing it would free the caller's object.
void cJSON_AddItemToObject(json_object *pstObject, const char *pcKey, json_object *pstItem) {
    if (pstItem != nullptr && pstItem == pstObject) {
        return;
    }
    if (pstObject == nullptr || pcKey == nullptr ||
        !json_object_is_type(pstObject, json_type_object) ||
        json_object_object_add(pstObject, pcKey, pstItem) != 0) {
        json_object_put(pstItem);
    }
}

// As cJSON_AddItemToObject: the array owns the item from here on.
void cJSON_AddItemToArray(json_object *pstArray, json_object *pstItem) {
    if (pstItem != nullptr && pstItem == pstArray) {
        return;
    }
    if (pstArray == nullptr || !json_object_is_type(pstArray, json_type_array) ||
        json_object_array_add(pstArray, pstItem) != 0) {
        json_object_put(pstItem);
    }
}

// json_object_object_get_ex finds nothing in a null value or one that is not an object.
json_object *cJSON_GetObjectItem(json_object *pstObject, const char *pcKey) {
    json_object *pstItem = nullptr;
    if (pcKey == nullptr || !json_object_object_get_ex(pstObject, pcKey, &pstItem)) {
        return nullptr;
    }
    return pstItem;
}

// json_object_array_get_idx gives null past the end.
json_object *cJSON_GetArrayItem(json_object *pstArray, int iIndex) {
    if (iIndex < 0 || !json_object_is_type(pstArray, json_type_array)) {
        return nullptr;
    }
    return json_object_array_get_idx(pstArray, static_cast<size_t>(iIndex));
}

int cJSON_GetArraySize(json_object *pstArray) {
    if (pstArray == nullptr || !json_object_is_type(pstArray, json_type_array)) {
        return 0;
    }
    size_t size = json_object_array_length(pstArray);
    return size > static_cast<size_t>(INT_MAX) ? INT_MAX : static_cast<int>(size);
}

// The text is kept by the tree and released with it.
const char *cJSON_Print(json_object *pstItem) {
    return json_object_to_json_string_ext(pstItem, JSON_C_TO_STRING_PRETTY |
                                                       JSON_C_TO_STRING_SPACED |
                                                       JSON_C_TO_STRING_NOSLASHESCAPE);
}

json_object *cJSON_Parse(const char *pcText) {
    if (pcText == nullptr || !TokensAreStrict(pcText)) {
        return nullptr;
    }
    size_t len = strlen(pcText);
    if (len >= static_cast<size_t>(INT_MAX)) {
        return nullptr;
    }
    json_tokener *pstTok = json_tokener_new();
    if (pstTok == nullptr) {
        return nullptr;
    }
    json_tokener_set_flags(pstTok, JSON_TOKENER_STRICT | JSON_TOKENER_VALIDATE_UTF8);
    // The length includes the NUL so that a number at the end of the text is complete.
    json_object *pstRoot = json_tokener_parse_ex(pstTok, pcText, static_cast<int>(len) + 1);
    bool bComplete = json_tokener_get_error(pstTok) == json_tokener_success;
    size_t end = json_tokener_get_parse_end(pstTok);
    json_tokener_free(pstTok);
    // A JSON null at the top parses to no value; it is no tree either.
    if (!bComplete || pstRoot == nullptr) {
        json_object_put(pstRoot);
        return nullptr;
    }
    while (end < len && IsJsonSpace(pcText[end])) {
        ++end;
    }
    bool bNonFinite = false;
    json_c_visit(pstRoot, 0, FindNonFinite, &bNonFinite);
    if (end < len || bNonFinite) {
        json_object_put(pstRoot);
        return nullptr;
    }
    return pstRoot;
}

void cJSON_Delete(json_object *pstItem) {
    json_object_put(pstItem);
}
