// The host's JSON tree functions, over json-c objects.
#ifndef CJSON_H
#define CJSON_H

#include <json-c/json.h>

typedef struct json_object cJSON;

json_object* cJSON_CreateObject();
json_object* cJSON_CreateArray();
json_object* cJSON_CreateNumber(int value);
json_object* cJSON_CreateNumber(long long value);
json_object* cJSON_CreateNumber(unsigned long long value);
json_object* cJSON_CreateString(const char* text);
// The container takes ownership of item (also of a null item, which prints as JSON null).
void cJSON_AddItemToObject(json_object* object, const char* key, json_object* item);
void cJSON_AddItemToArray(json_object* array, json_object* item);
// Null when the key is absent or its value is JSON null; the value stays owned by object.
json_object* cJSON_GetObjectItem(json_object* object, const char* key);
json_object* cJSON_Parse(const char* text);  // null when text is not JSON
// The text belongs to the tree and stays valid until cJSON_Delete.
char* cJSON_Print(json_object* object);
void cJSON_Delete(json_object* object);

#endif
