// SPDX-License-Identifier: Apache-2.0
// JSON value operations of the access server's common library, over json-c values.
// Ownership: create/parse results belong to the caller (release with cJSON_Delete); an item
// added to an object or array belongs to that container from then on, also when the add fails
// (it is then released at once); lookups and printed texts are borrowed from the tree.
#ifndef TALAPI_JSON_H
#define TALAPI_JSON_H

#include <json-c/json.h>

json_object *cJSON_CreateObject();
json_object *cJSON_CreateArray();
json_object *cJSON_CreateNumber(int iValue);
json_object *cJSON_CreateNumber(unsigned int uiValue);
json_object *cJSON_CreateNumber(long long llValue);
json_object *cJSON_CreateNumber(unsigned long long ullValue);
// A copy of the text; null for a null text.
json_object *cJSON_CreateString(const char *pcText);

// A null item is stored as JSON null; an existing key is replaced.
void cJSON_AddItemToObject(json_object *pstObject, const char *pcKey, json_object *pstItem);
void cJSON_AddItemToArray(json_object *pstArray, json_object *pstItem);

// Null when the key is absent, holds JSON null, or the first argument is not an object.
json_object *cJSON_GetObjectItem(json_object *pstObject, const char *pcKey);
// Null when the index is out of range or the first argument is not an array.
json_object *cJSON_GetArrayItem(json_object *pstArray, int iIndex);
// 0 for anything that is not an array.
int cJSON_GetArraySize(json_object *pstArray);

// The tree's JSON text (indented, "/" unescaped); owned by the tree, valid until it changes.
const char *cJSON_Print(json_object *pstItem);
// Strict RFC 8259 JSON, valid UTF-8, exactly one value (surrounding white space allowed),
// nesting at most json-c's default depth; null otherwise.
json_object *cJSON_Parse(const char *pcText);
void cJSON_Delete(json_object *pstItem);

#endif
