// cereal's JSON archive on a RapidJSON whose memory is checked. As it comes, RapidJSON writes through the
// null pointer that the C library returns when there is no memory left; here std::bad_alloc is thrown
// instead. The one source file that uses the archive includes it by this header.
#pragma once

// A failed assertion is the archive's exception. The archive says so itself, but only behind its own first
// line.
[[noreturn]] inline void ThrowRapidJsonAssertion(const char* text);
#define RAPIDJSON_ASSERT_THROWS
#define RAPIDJSON_ASSERT(x)                                                   \
    if (!(x)) {                                                               \
        ThrowRapidJsonAssertion("rapidjson internal assertion failure: " #x); \
    }

#include <rapidjson/allocators.h>
#include <rapidjson/internal/stack.h>
#include <rapidjson/istreamwrapper.h>

#include <cstddef>
#include <istream>
#include <new>

namespace rapidjson {

// The two places where it asks the C library for memory: a chunk of values, and a parser's stack.
template <>
inline bool MemoryPoolAllocator<CrtAllocator>::AddChunk(std::size_t capacity) {
    if (baseAllocator_ == nullptr) {
        ownBaseAllocator_ = baseAllocator_ = new CrtAllocator();
    }
    void* const memory = baseAllocator_->Malloc(RAPIDJSON_ALIGN(sizeof(ChunkHeader)) + capacity);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    chunkHead_ = new (memory) ChunkHeader{capacity, 0, chunkHead_};
    return true;
}

template <>
inline void internal::Stack<CrtAllocator>::Resize(std::size_t newCapacity) {
    const std::size_t size = GetSize();
    void* const memory = allocator_->Realloc(stack_, GetCapacity(), newCapacity);
    if (memory == nullptr && newCapacity != 0) {
        throw std::bad_alloc();  // what the stack has is still its own
    }
    stack_ = static_cast<char*>(memory);
    stackTop_ = stack_ + size;
    stackEnd_ = stack_ + newCapacity;
}

// A character comes straight out of the stream's buffer: the stream's own functions prepare and check each
// one anew, half of the time that a text took.
template <>
inline char BasicIStreamWrapper<std::istream>::Peek() const {
    const std::istream::int_type next = stream_.rdbuf()->sgetc();
    return next != std::istream::traits_type::eof() ? static_cast<char>(next) : '\0';
}

template <>
inline char BasicIStreamWrapper<std::istream>::Take() {
    const std::istream::int_type next = stream_.rdbuf()->sbumpc();
    if (next == std::istream::traits_type::eof()) {
        return '\0';
    }
    ++count_;
    return static_cast<char>(next);
}

}  // namespace rapidjson

#include <cereal/archives/json.hpp>

#ifndef RAPIDJSON_DOCUMENT_H_
#error "This cereal brings a RapidJSON of its own, whose memory would not be checked."
#endif

[[noreturn]] inline void ThrowRapidJsonAssertion(const char* text) {
    throw cereal::RapidJSONException(text);
}
