#include "cjson_owned.h"

#include <stdlib.h>
#include <string.h>

namespace cjson_owned {
namespace {

// Keys that do not fit the first block go to further blocks, newest first.
struct KeyBlock {
    KeyBlock* next;
    size_t used;
    size_t size;
    char* Bytes() { return reinterpret_cast<char*>(this + 1); }
};

// The first block is inline: an object's keys (the largest record's 13 keys take 121 bytes)
// usually cost the one allocation that the container's data needs anyway.
const size_t kFirstKeyBytes = 192;
const size_t kMoreKeyBytes = 256;

struct Owned {
    Text text;
    KeyBlock* more;
    size_t used;
    char first[kFirstKeyBytes];
};

void FreeOwned(json_object* /*container*/, void* userdata) {
    Owned* owned = static_cast<Owned*>(userdata);
    for (KeyBlock* block = owned->more; block != nullptr;) {
        KeyBlock* next = block->next;
        free(block);
        block = next;
    }
    free(owned->text.bytes);
    free(owned);
}

// Containers made or printed by the host carry nothing else in their userdata.
Owned* OwnedBy(json_object* container) {
    Owned* owned = static_cast<Owned*>(json_object_get_userdata(container));
    if (owned == nullptr) {
        owned = static_cast<Owned*>(malloc(sizeof(Owned)));
        if (owned == nullptr) {
            return nullptr;
        }
        owned->text = Text();
        owned->more = nullptr;
        owned->used = 0;
        json_object_set_userdata(container, owned, FreeOwned);
    }
    return owned;
}

char* KeySpace(Owned* owned, size_t size) {
    if (owned->used + size <= kFirstKeyBytes) {
        char* space = owned->first + owned->used;
        owned->used += size;
        return space;
    }
    KeyBlock* block = owned->more;
    if (block == nullptr || block->size - block->used < size) {
        size_t bytes = size > kMoreKeyBytes ? size : kMoreKeyBytes;
        block = static_cast<KeyBlock*>(malloc(sizeof(KeyBlock) + bytes));
        if (block == nullptr) {
            return nullptr;
        }
        *block = KeyBlock{owned->more, 0, bytes};
        owned->more = block;
    }
    char* space = block->Bytes() + block->used;
    block->used += size;
    return space;
}

}  // namespace

const char* KeepKey(json_object* object, const char* key) {
    Owned* owned = OwnedBy(object);
    const size_t size = strlen(key) + 1;
    char* copy = owned == nullptr ? nullptr : KeySpace(owned, size);
    if (copy != nullptr) {
        memcpy(copy, key, size);
    }
    return copy;
}

Text* PrintBuffer(json_object* container) {
    Owned* owned = OwnedBy(container);
    return owned == nullptr ? nullptr : &owned->text;
}

}  // namespace cjson_owned
