#include "secret.h"

#include <openssl/crypto.h>

namespace tovaserverutil {

void Wipe(void* memory, std::size_t size) {
    OPENSSL_cleanse(memory, size);
}

void Wipe(std::string& text) {
    // Growing to the capacity never reallocates; it makes the bytes behind the end, left by an earlier longer
    // text, part of the string.
    text.resize(text.capacity());
    Wipe(text.data(), text.size());
    text.clear();
}

}  // namespace tovaserverutil
