// SPDX-License-Identifier: Apache-2.0
// Shared header of the access server's business modules: the JSON mapping between fixed-layout
// records and JSON objects, its value converters, the response envelope and the shared Parse and
// Format stages.
//
// A record becomes mappable by specialising jsonSchema<T> with one list of descriptors, one line
// per JSON key in text order:
//
//   template <> struct jsonSchema<VW_RECT_INFO> {
//       static constexpr auto members() {
//           return std::make_tuple(member(&VW_RECT_INFO::x, "x"), member(&VW_RECT_INFO::y, "y"));
//       }
//   };
//
// The same list drives encoding (key order) and decoding (decode order). A record whose two
// directions differ specialises jsonEncoder<T> or jsonDecoder<T> instead. Descriptors are small
// constants built at each call; the drivers fold over them at compile time.
#ifndef TALAPI_BUSINESS_COMMON_H
#define TALAPI_BUSINESS_COMMON_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <limits>
#include <tuple>
#include <type_traits>

#include <safe_mem_lib.h>
#include <safe_str_lib.h>

#include "talapi_common.h"

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "records are little-endian wire images");

// Debug log call of the business code: module 4, the caller's level, the debug flag, no errno.
#define TALAPI_LOG(level, ...) \
    VW_WriteLog(VW_LOG_MODULE_TALAPI, (level), g_enDebugFlag, 0, __FILE__, __LINE__, __VA_ARGS__)

// The per-member steps of the drivers: inlined into the walk over a schema, where the compiler
// would otherwise call them once per member.
#define TALAPI_MAPPING_INLINE inline __attribute__((always_inline))

// How one member is written as JSON. The format changes decoding only for a string value of a
// scalar member.
enum JSON_FORMAT_TYPE_E {
    JSON_FORMAT_DEFAULT = 0,      // the member type's natural form
    JSON_FORMAT_BOOL = 1,         // boolean of the member's first byte
    JSON_FORMAT_HOUR_MINUTE = 2,  // first 16 bits as minutes of the day, "%H:%M"
    JSON_FORMAT_DATE_TIME = 3,    // first 32 bits as epoch seconds, local "%Y-%m-%d %H:%M:%S"
};

// Allocation policies. Every mapped member lies inside its record, so they allocate nothing.
struct NullAlloc {};
struct NullDealloc {};

// Descriptor of one member: where it lies in T, its key and its format.
template <typename T, typename M, typename Alloc = NullAlloc, typename Dealloc = NullDealloc>
struct MemberCoder {
    Alloc alloc;
    Dealloc dealloc;
    M T::*location;
    const char *key;
    JSON_FORMAT_TYPE_E format;

    // Adds the member's value under the key (null when it cannot be made); always 0.
    int encode(const T &record, json_object *object) const;
};

// Descriptor of an array of capacity N whose number of valid elements is held in another member,
// possibly shared with other arrays.
template <typename T, typename Count, typename Elem, std::size_t N, typename Alloc = NullAlloc,
          typename Dealloc = NullDealloc>
struct StaticArrayMember {
    Alloc alloc;
    Dealloc dealloc;
    Count T::*countLocation;
    Elem (T::*arrayLocation)[N];
    const char *key;
};

// The schema of a mappable record: static constexpr auto members() returning a tuple of
// descriptors.
template <typename T>
struct jsonSchema;

// A record holding one bounded text under "osdContent" opts in to decoding through
// json_decode_text_record.
template <typename R>
struct jsonTextRecord : std::false_type {};

template <typename T>
struct jsonEncoder;
template <typename T, typename Alloc = NullAlloc, typename Dealloc = NullDealloc>
struct jsonDecoder;

namespace talapi_mapping {

template <typename M>
constexpr bool is_text_v = std::is_array_v<M> &&std::is_same_v<std::remove_extent_t<M>, char>;

template <typename M>
constexpr bool is_scalar_v = std::is_arithmetic_v<M> || std::is_enum_v<M>;

template <typename M>
constexpr bool check_member_kind() {
    static_assert(is_text_v<M> || is_scalar_v<M> || std::is_class_v<M>,
                  "a member is a number, an enumeration, a char text or a mapped record");
    if constexpr (std::is_enum_v<M>) {
        static_assert(sizeof(M) == 4, "record enumerations are 32-bit");
    }
    if constexpr (std::is_arithmetic_v<M>) {
        static_assert(sizeof(M) <= 8, "numbers are at most 64-bit");
    }
    return true;
}

}  // namespace talapi_mapping

// Descriptor factories, so that a schema line reads member(&T::x, "x").
template <typename T, typename M>
constexpr MemberCoder<T, M> member(M T::*location, const char *key,
                                   JSON_FORMAT_TYPE_E format = JSON_FORMAT_DEFAULT) {
    static_assert(talapi_mapping::check_member_kind<M>());
    return MemberCoder<T, M>{NullAlloc{}, NullDealloc{}, location, key, format};
}

template <typename T, typename Count, typename Elem, std::size_t N>
constexpr StaticArrayMember<T, Count, Elem, N> array_member(Count T::*countLocation,
                                                            Elem (T::*arrayLocation)[N],
                                                            const char *key) {
    static_assert(std::is_unsigned_v<Count>, "an array count is unsigned");
    static_assert(talapi_mapping::is_scalar_v<Elem> || std::is_class_v<Elem>,
                  "array elements are numbers, enumerations or mapped records");
    return StaticArrayMember<T, Count, Elem, N>{NullAlloc{}, NullDealloc{}, countLocation,
                                                arrayLocation, key};
}

// ---------------------------------------------------------------------------------------------
// Value converters

namespace talapi_mapping {

// A private NUL-terminated copy of a JSON string, from malloc; null when it cannot be made.
inline char *copy_json_string(json_object *value) {
    int length = json_object_get_string_len(value);
    if (length < 0) {
        return nullptr;
    }
    std::size_t size = static_cast<std::size_t>(length) + 1;
    char *copy = static_cast<char *>(malloc(size));
    if (copy == nullptr) {
        return nullptr;
    }
    if (value == nullptr || json_object_get_type(value) != json_type_string ||
        strncpy_s(copy, size, json_object_get_string(value), size - 1) != 0) {
        free(copy);
        return nullptr;
    }
    return copy;
}

// Parses the whole text with strptime into a zeroed broken-down time; false when any of it fails.
inline bool parse_whole(const char *text, const char *format, struct tm *time) {
    if (memset_s(time, sizeof(*time), 0, sizeof(*time)) != 0) {
        return false;
    }
    const char *end = strptime(text, format, time);
    return end != nullptr && *end == '\0';
}

}  // namespace talapi_mapping

// Minutes of the day as "%H:%M"; 1440 gives "24:00". Null when the value cannot be made.
inline json_object *json_encode_hour_minute(unsigned short usMinutes) {
    struct tm time;
    if (memset_s(&time, sizeof(time), 0, sizeof(time)) != 0) {
        return nullptr;
    }
    time.tm_hour = usMinutes / 60;
    time.tm_min = usMinutes % 60;
    char text[64] = {};
    strftime(text, sizeof(text), "%H:%M", &time);
    return cJSON_CreateString(text);
}

// Epoch seconds as local "%Y-%m-%d %H:%M:%S". Null when the value cannot be made.
inline json_object *json_encode_date_time(int iSeconds) {
    time_t seconds = iSeconds;
    struct tm time;
    if (localtime_r(&seconds, &time) == nullptr) {
        return nullptr;
    }
    char text[64] = {};
    strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &time);
    return cJSON_CreateString(text);
}

// "%H:%M" (or "24:00") to minutes of the day; -1 when the whole text is not such a time.
inline int json_decode_hour_minute(json_object *value) {
    char *text = talapi_mapping::copy_json_string(value);
    if (text == nullptr) {
        return -1;
    }
    int minutes = -1;
    struct tm time;
    if (strcmp(text, "24:00") == 0) {
        minutes = 1440;
    } else if (talapi_mapping::parse_whole(text, "%H:%M", &time)) {
        minutes = time.tm_hour * 60 + time.tm_min;
    }
    free(text);
    return minutes;
}

// Local "%Y-%m-%d %H:%M:%S", taken as standard time, to epoch seconds; -1 on any failure.
inline long long json_decode_date_time(json_object *value) {
    char *text = talapi_mapping::copy_json_string(value);
    if (text == nullptr) {
        return -1;
    }
    long long seconds = -1;
    struct tm time;
    if (talapi_mapping::parse_whole(text, "%Y-%m-%d %H:%M:%S", &time)) {
        seconds = static_cast<long long>(mktime(&time));
    }
    free(text);
    return seconds;
}

namespace talapi_mapping {

// The integer type that holds the bits of a scalar member.
template <typename M, typename = void>
struct bits_of {
    using type = M;
};
template <typename M>
struct bits_of<M, std::enable_if_t<std::is_enum_v<M>>> {
    using type = std::underlying_type_t<M>;
};
template <>
struct bits_of<bool> {
    using type = unsigned char;
};
template <typename M>
using bits_of_t = typename bits_of<M>::type;

// Stores a 64-bit value into the member, keeping its low bits (bool: non-zero is true).
template <typename M>
void store_low_bits(M &member, uint64_t bits) {
    if constexpr (std::is_same_v<M, bool>) {
        member = bits != 0;
    } else {
        bits_of_t<M> narrowed = static_cast<bits_of_t<M>>(bits);
        memcpy(&member, &narrowed, sizeof(member));
    }
}

// A double truncated toward zero and saturated to the member's conversion range: signed 32-bit
// for signed members up to 32 bits, unsigned 32-bit for unsigned ones and enumerations, the full
// range for 64-bit members. NaN gives 0.
template <typename M>
uint64_t saturate_double(double value) {
    if (value != value) {
        return 0;
    }
    using Bits = bits_of_t<M>;
    if constexpr (std::is_same_v<M, bool>) {
        return value >= 1.0 ? 1 : 0;
    } else if constexpr (std::is_signed_v<Bits> && !std::is_enum_v<M>) {
        using Range = std::conditional_t<sizeof(Bits) == 8, int64_t, int32_t>;
        constexpr double kMax = -static_cast<double>(std::numeric_limits<Range>::min());
        if (value >= kMax) {
            return static_cast<uint64_t>(static_cast<int64_t>(std::numeric_limits<Range>::max()));
        }
        if (value <= -kMax) {
            return static_cast<uint64_t>(static_cast<int64_t>(std::numeric_limits<Range>::min()));
        }
        return static_cast<uint64_t>(static_cast<int64_t>(static_cast<Range>(value)));
    } else {
        using Range = std::conditional_t<sizeof(Bits) == 8, uint64_t, uint32_t>;
        constexpr double kLimit = static_cast<double>(std::numeric_limits<Range>::max()) + 1.0;
        if (!(value > 0.0)) {
            return 0;
        }
        if (value >= kLimit) {
            return std::numeric_limits<Range>::max();
        }
        return static_cast<Range>(value);
    }
}

// The 64 bits of a JSON int, unsigned values above the signed range included.
inline uint64_t json_int_bits(json_object *value) {
    int64_t signedValue = json_object_get_int64(value);
    if (signedValue == std::numeric_limits<int64_t>::max()) {
        return json_object_get_uint64(value);
    }
    return static_cast<uint64_t>(signedValue);
}

// A JSON boolean, double or int (the value's type given) into a number member; -1 for any other
// JSON type.
template <typename M>
TALAPI_MAPPING_INLINE int decode_number(json_object *value, json_type type, M &member) {
    switch (type) {
        case json_type_boolean:
            store_low_bits(member, json_object_get_boolean(value) ? 1 : 0);
            return 0;
        case json_type_double:
            store_low_bits(member, saturate_double<M>(json_object_get_double(value)));
            return 0;
        case json_type_int:
            store_low_bits(member, json_int_bits(value));
            return 0;
        default:
            return -1;
    }
}

}  // namespace talapi_mapping

// Reads the first min(array size, iCount) elements of a JSON array of numbers into the elements;
// 0, or -1 for a value that is not an array or an element that is not a boolean or a number
// (the elements before it keep their new values). The context is not used.
template <typename Elem = unsigned long long>
int json_decode_array(json_object *value, void *pvContext, Elem *pElements, int iCount) {
    (void)pvContext;
    if (json_object_get_type(value) != json_type_array) {
        return -1;
    }
    int size = cJSON_GetArraySize(value);
    int count = size < iCount ? size : iCount;
    for (int index = 0; index < count; ++index) {
        json_object *element = cJSON_GetArrayItem(value, index);
        if (talapi_mapping::decode_number(element, json_object_get_type(element),
                                          pElements[index]) != 0) {
            return -1;
        }
    }
    return 0;
}

// Decodes the "osdContent" text of the text record at location from parent[key]. Absent keys
// leave the text; a non-string or over-long text is -1; otherwise the copy's result.
template <typename T, typename R>
int json_decode_text_record(R T::*location, const char *pcKey, json_object *pstParent, T &record) {
    char(&text)[sizeof(R::osdContent)] = (record.*location).osdContent;
    json_object *item = cJSON_GetObjectItem(pstParent, pcKey);
    if (item == nullptr) {
        return 0;
    }
    json_object *content = cJSON_GetObjectItem(item, "osdContent");
    if (content == nullptr) {
        return 0;
    }
    if (json_object_get_type(content) != json_type_string ||
        json_object_get_string_len(content) > static_cast<int>(sizeof(text) - 1)) {
        return -1;
    }
    const char *source = json_object_get_string(content);
    if (source == nullptr) {
        return 0;
    }
    return strncpy_s(text, sizeof(text), source,
                     static_cast<rsize_t>(json_object_get_string_len(content)));
}

// ---------------------------------------------------------------------------------------------
// Encoding

template <typename Elem>
json_object *json_encode_array(const Elem *pElements, int iCount);

namespace talapi_mapping {

template <typename M>
uint64_t leading_bits(const M &member, std::size_t bytes) {
    uint64_t bits = 0;
    memcpy(&bits, &member, sizeof(M) < bytes ? sizeof(M) : bytes);
    return bits;
}

// The member's natural JSON value; null when it cannot be made.
template <typename M>
TALAPI_MAPPING_INLINE json_object *encode_natural(const M &value) {
    if constexpr (is_text_v<M>) {
        // The bytes up to the first NUL, never beyond the field.
        constexpr std::size_t kSize = sizeof(M);
        if (memchr(value, '\0', kSize) != nullptr) {
            return cJSON_CreateString(value);
        }
        char terminated[kSize + 1];
        memcpy(terminated, value, kSize);
        terminated[kSize] = '\0';
        return cJSON_CreateString(terminated);
    } else if constexpr (std::is_same_v<M, bool>) {
        // Read as a byte: a wire flag may hold any non-zero value.
        return json_object_new_boolean(leading_bits(value, 1) != 0);
    } else if constexpr (std::is_enum_v<M>) {
        return cJSON_CreateNumber(static_cast<int>(value));
    } else if constexpr (std::is_same_v<M, unsigned long long>) {
        return cJSON_CreateNumber(value);
    } else if constexpr (std::is_same_v<M, long long>) {
        return cJSON_CreateNumber(value);
    } else if constexpr (std::is_same_v<M, unsigned int>) {
        return cJSON_CreateNumber(value);
    } else if constexpr (std::is_integral_v<M>) {
        static_assert(sizeof(M) < 4 || std::is_same_v<M, int>, "use int, unsigned int or 64-bit");
        return cJSON_CreateNumber(static_cast<int>(value));
    } else {
        static_assert(std::is_class_v<M>, "floating-point members are not mapped");
        return jsonEncoder<M>::encode_nulldata(value, nullptr);
    }
}

template <typename T, typename M, typename A, typename D>
TALAPI_MAPPING_INLINE int encode_descriptor(const T &record, json_object *object,
                                            const MemberCoder<T, M, A, D> &coder) {
    return coder.encode(record, object);
}

// Count 0 leaves the key out; a count above the capacity stops the record's encoding.
template <typename T, typename C, typename E, std::size_t N, typename A, typename D>
int encode_descriptor(const T &record, json_object *object,
                      const StaticArrayMember<T, C, E, N, A, D> &array) {
    uint32_t count = static_cast<uint32_t>(record.*array.countLocation);
    if (count == 0) {
        return 0;
    }
    if (count > N) {
        return -1;
    }
    cJSON_AddItemToObject(object, array.key,
                          json_encode_array(&(record.*array.arrayLocation)[0], count));
    return 0;
}

}  // namespace talapi_mapping

namespace talapi_mapping {

// The value of a member under a format other than the default. Out of line, so that the path of
// natural values stays small.
template <typename M>
__attribute__((noinline)) json_object *encode_formatted(const M &value, JSON_FORMAT_TYPE_E format) {
    switch (format) {
        case JSON_FORMAT_BOOL:
            return json_object_new_boolean(leading_bits(value, 1) != 0);
        case JSON_FORMAT_HOUR_MINUTE:
            return json_encode_hour_minute(static_cast<unsigned short>(leading_bits(value, 2)));
        case JSON_FORMAT_DATE_TIME:
            return json_encode_date_time(
                static_cast<int>(static_cast<uint32_t>(leading_bits(value, 4))));
        default:
            return encode_natural(value);
    }
}

}  // namespace talapi_mapping

template <typename T, typename M, typename Alloc, typename Dealloc>
TALAPI_MAPPING_INLINE int MemberCoder<T, M, Alloc, Dealloc>::encode(const T &record,
                                                                    json_object *object) const {
    const M &value = record.*location;
    json_object *item = format == JSON_FORMAT_DEFAULT
                            ? talapi_mapping::encode_natural(value)
                            : talapi_mapping::encode_formatted(value, format);
    cJSON_AddItemToObject(object, key, item);  // the object owns the item from here
    return 0;
}

// A new array of the first iCount elements in their natural form (records as objects); null
// when the array or one element cannot be made.
template <typename Elem>
json_object *json_encode_array(const Elem *pElements, int iCount) {
    json_object *array = cJSON_CreateArray();
    if (array == nullptr) {
        return nullptr;
    }
    for (int index = 0; index < iCount; ++index) {
        json_object *item = talapi_mapping::encode_natural(pElements[index]);
        if (item == nullptr) {
            cJSON_Delete(array);
            return nullptr;
        }
        cJSON_AddItemToArray(array, item);
    }
    return array;
}

// Encodes the descriptors in order; the first non-zero result (an array above its capacity)
// ends the walk. The walk is a fold over the pack, so its stack depth does not grow with the
// schema.
template <typename T, typename First, typename... Rest>
int json_encode_member(const T &record, json_object *object, const First &first, Rest... rest) {
    int result = talapi_mapping::encode_descriptor(record, object, first);
    ((result == 0 ? void(result = talapi_mapping::encode_descriptor(record, object, rest))
                  : void()),
     ...);
    return result;
}

// A new object holding the encoded members; null when it cannot be made or a member fails.
template <typename T, typename... Descriptors>
json_object *json_encode_obj(const T &record, Descriptors... descriptors) {
    json_object *object = cJSON_CreateObject();
    if (object == nullptr) {
        return nullptr;
    }
    if (json_encode_member(record, object, descriptors...) != 0) {
        cJSON_Delete(object);
        return nullptr;
    }
    return object;
}

template <typename T>
struct jsonEncoder {
    // The record's object by its schema, or null. The data pointer is not read.
    static json_object *encode_nulldata(const T &record, void *pvData) {
        (void)pvData;
        return std::apply(
            [&record](auto... descriptors) { return json_encode_obj(record, descriptors...); },
            jsonSchema<T>::members());
    }
};

// The record's JSON text in a malloc'd buffer that the caller releases with free; null on
// failure.
template <typename T>
char *json_encode(const T &record) {
    json_object *object = jsonEncoder<T>::encode_nulldata(record, nullptr);
    if (object == nullptr) {
        return nullptr;
    }
    const char *printed = cJSON_Print(object);  // owned by the tree
    if (printed == nullptr) {
        cJSON_Delete(object);
        return nullptr;
    }
    std::size_t length = strlen(printed);
    char *text = static_cast<char *>(malloc(length + 1));
    if (text == nullptr || memset_s(text, length + 1, 0, length + 1) != 0 ||
        strncpy_s(text, length + 1, printed, length) != 0) {
        free(text);
        cJSON_Delete(object);
        return nullptr;
    }
    cJSON_Delete(object);
    return text;
}

// ---------------------------------------------------------------------------------------------
// Decoding: members present in the object replace the record's values; absent ones stay.

namespace talapi_mapping {

// A string into a scalar member: only the time formats take one. Out of line, so that the path
// of plain numbers stays small.
template <typename M>
__attribute__((noinline)) int decode_time_text(json_object *value, JSON_FORMAT_TYPE_E format,
                                               M &member) {
    long long parsed;
    if (format == JSON_FORMAT_HOUR_MINUTE) {
        parsed = json_decode_hour_minute(value);
    } else if (format == JSON_FORMAT_DATE_TIME) {
        parsed = json_decode_date_time(value);
    } else {
        return -1;
    }
    if (parsed == -1) {
        return -1;
    }
    store_low_bits(member, static_cast<uint64_t>(parsed));
    return 0;
}

template <typename M>
TALAPI_MAPPING_INLINE int decode_scalar(json_object *value, JSON_FORMAT_TYPE_E format, M &member) {
    json_type type = json_object_get_type(value);
    return type == json_type_string ? decode_time_text(value, format, member)
                                    : decode_number(value, type, member);
}

template <std::size_t N>
int decode_text(json_object *value, char (&text)[N]) {
    if (json_object_get_type(value) != json_type_string ||
        json_object_get_string_len(value) > static_cast<int>(N - 1)) {
        return -1;
    }
    const char *source = json_object_get_string(value);
    if (source == nullptr) {
        return 0;
    }
    return strncpy_s(text, N, source, static_cast<rsize_t>(json_object_get_string_len(value)));
}

template <typename T, typename M, typename A, typename D>
TALAPI_MAPPING_INLINE int decode_descriptor(json_object *object, void *context, T &record,
                                            const MemberCoder<T, M, A, D> &coder) {
    if constexpr (jsonTextRecord<M>::value) {
        return json_decode_text_record(coder.location, coder.key, object, record);
    } else {
        json_object *value = cJSON_GetObjectItem(object, coder.key);
        if (value == nullptr) {
            return 0;
        }
        M &target = record.*coder.location;
        if constexpr (is_text_v<M>) {
            return decode_text(value, target);
        } else if constexpr (std::is_class_v<M>) {
            return jsonDecoder<M, A, D>::decode(value, context, target, coder.alloc, coder.dealloc,
                                                coder.format);
        } else {
            return decode_scalar(value, coder.format, target);
        }
    }
}

// The array's size becomes the count (shared counts take the last array present); above the
// capacity is a failure that leaves the oversized count.
template <typename T, typename C, typename E, std::size_t N, typename A, typename D>
int decode_descriptor(json_object *object, void *context, T &record,
                      const StaticArrayMember<T, C, E, N, A, D> &array) {
    json_object *value = cJSON_GetObjectItem(object, array.key);
    if (value == nullptr) {
        return 0;
    }
    if (json_object_get_type(value) != json_type_array) {
        return -1;
    }
    int size = cJSON_GetArraySize(value);
    record.*array.countLocation = static_cast<C>(size);
    if (static_cast<std::size_t>(size) > N) {
        return -1;
    }
    E(&elements)[N] = record.*array.arrayLocation;
    if constexpr (std::is_class_v<E>) {
        for (int index = 0; index < size; ++index) {
            int result = jsonDecoder<E, A, D>::decode(cJSON_GetArrayItem(value, index), context,
                                                      elements[index], array.alloc, array.dealloc,
                                                      JSON_FORMAT_DEFAULT);
            if (result != 0) {
                return result;
            }
        }
        return 0;
    } else {
        return json_decode_array(value, context, &elements[0], size);
    }
}

}  // namespace talapi_mapping

// Decodes the descriptors in order; the first failure ends the walk with its code, the members
// before it keeping their new values. A fold over the pack, like the encoder.
template <typename T, typename First, typename... Rest>
int json_decode_member(json_object *object, void *pvContext, T &record, const First &first,
                       Rest... rest) {
    int result = talapi_mapping::decode_descriptor(object, pvContext, record, first);
    ((result == 0
          ? void(result = talapi_mapping::decode_descriptor(object, pvContext, record, rest))
          : void()),
     ...);
    return result;
}

template <typename T, typename Alloc, typename Dealloc>
struct jsonDecoder {
    // Decodes the record from the object by its schema; a value that is not an object changes
    // nothing. The context and the format do not change decoding.
    static int decode(json_object *object, void *pvContext, T &record, Alloc, Dealloc,
                      JSON_FORMAT_TYPE_E) {
        return std::apply(
            [&](auto... descriptors) {
                return json_decode_member(object, pvContext, record, descriptors...);
            },
            jsonSchema<T>::members());
    }
};

// Parses the text and decodes the record from it: 0, -1 when the text is not JSON, otherwise the
// failing member's code.
template <typename T>
int json_decode(const char *pcText, void *pvContext, T &record) {
    json_object *root = cJSON_Parse(pcText);
    if (root == nullptr) {
        return -1;
    }
    int result = jsonDecoder<T, NullAlloc, NullDealloc>::decode(
        root, pvContext, record, NullAlloc{}, NullDealloc{}, JSON_FORMAT_DEFAULT);
    cJSON_Delete(root);
    return result;
}

// ---------------------------------------------------------------------------------------------
// The response envelope {"ResponseStatus": {"RequestURL", "StatusCode", "StatusString"}}

template <>
struct jsonSchema<TALAPI_RESPONSE_STATUS> {
    static constexpr auto members() {
        return std::make_tuple(member(&TALAPI_RESPONSE_STATUS::RequestURL, "RequestURL"),
                               member(&TALAPI_RESPONSE_STATUS::StatusCode, "StatusCode"),
                               member(&TALAPI_RESPONSE_STATUS::StatusString, "StatusString"));
    }
};

template <>
struct jsonSchema<TALAPI_RESPONSE> {
    static constexpr auto members() {
        return std::make_tuple(member(&TALAPI_RESPONSE::ResponseStatus, "ResponseStatus"));
    }
};

// ---------------------------------------------------------------------------------------------
// Shared stages

// Format stage of a GET or POST: the JSON object of the record in pRunOut when there is one
// (whatever the result), otherwise the envelope of the result. 0 when the text was stored, -1
// otherwise. Neither frees nor changes pRunOut.
template <typename T>
int FormatCommonResponse(tagHTTP_HEADER_S *pstHeader, VW_RESULT_TYPE enResult,
                         tagHTTP_CNTENT_INTER_S *pstCtInt, tagHTTP_BUF_S *pstBuf) {
    if (pstHeader == nullptr || pstCtInt == nullptr || pstBuf == nullptr ||
        pstBuf->Copy2Buf == nullptr) {
        TALAPI_LOG(VW_LOG_ERROR,
                   "[TALAPI]:%s: invalid param, pstHeader[%p] pstCtInt[%p] pstBuf[%p]",
                   "FormatCommonResponse", static_cast<void *>(pstHeader),
                   static_cast<void *>(pstCtInt), static_cast<void *>(pstBuf));
        return -1;
    }
    // The text is ours until it is freed below, on every path.
    char *pcText = pstCtInt->pRunOut != nullptr
                       ? json_encode(*static_cast<const T *>(pstCtInt->pRunOut))
                       : json_encode(FillResponseStatusParam(pstHeader, enResult));
    if (pcText == nullptr) {
        TALAPI_LOG(VW_LOG_ERROR, "[TALAPI]:%s: json_encode fail", "FormatCommonResponse");
        return -1;
    }
    std::size_t uLength = strlen(pcText);
    int iCopied = pstBuf->Copy2Buf(pstBuf, pcText, static_cast<unsigned int>(uLength));
    free(pcText);
    if (iCopied == -1) {
        TALAPI_LOG(VW_LOG_ERROR, "[TALAPI]:%s: Copy2Buf fail, dataLen[%llu]",
                   "FormatCommonResponse", static_cast<unsigned long long>(uLength));
        return -1;
    }
    return 0;
}

// Parse stage of a PUT: decodes the body into the record that the PreProc stage read, so that
// absent members keep their values, and moves that record from pPreProcOut to pParseOut.
// 4 when the body does not decode (the record stays in pPreProcOut, possibly changed in part);
// -1 for a null argument or when there is no PreProc record to decode into.
template <typename T>
VW_RESULT_TYPE ParseCommon(tagHTTP_HEADER_S *pstHeader, tagHTTP_BUF_S *pstHttpContent,
                           tagHTTP_CNTENT_INTER_S *pstCtIn) {
    if (pstHeader == nullptr || pstHttpContent == nullptr || pstCtIn == nullptr) {
        TALAPI_LOG(VW_LOG_ERROR,
                   "[TALAPI]:%s: invalid param, pstHeader[%p] pstHttpContent[%p] pstCtIn[%p]",
                   "ParseCommon", static_cast<void *>(pstHeader),
                   static_cast<void *>(pstHttpContent), static_cast<void *>(pstCtIn));
        return VW_RESULT_FAIL;
    }
    if (pstCtIn->pPreProcOut == nullptr) {
        TALAPI_LOG(VW_LOG_ERROR, "[TALAPI]:%s: no PreProc record to decode the body into",
                   "ParseCommon");
        return VW_RESULT_FAIL;
    }
    T &record = *static_cast<T *>(pstCtIn->pPreProcOut);
    json_object *pstRoot = cJSON_Parse(pstHttpContent->pBody);
    int iResult = pstRoot == nullptr ? -1
                                     : jsonDecoder<T, NullAlloc, NullDealloc>::decode(
                                           pstRoot, nullptr, record, NullAlloc{}, NullDealloc{},
                                           JSON_FORMAT_DEFAULT);
    cJSON_Delete(pstRoot);
    if (iResult != 0) {
        const int iLine = __LINE__;
        VW_WriteLog(VW_LOG_MODULE_TALAPI, VW_LOG_ERROR, g_enDebugFlag, 0, __FILE__, iLine,
                    "[TALAPI]:%s[%d] json decode fail\n", "ParseCommon", iLine);
        return VW_RESULT_PARAM_ERR;
    }
    // One record, now the Parse result.
    pstCtIn->pParseOut = pstCtIn->pPreProcOut;
    pstCtIn->pPreProcOut = nullptr;
    return VW_RESULT_OK;
}

#endif
