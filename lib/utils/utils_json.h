// RapidJSON with memory that may run out: the one way in to it.
//
// Its allocators answer null when there is no memory, and its containers write there all the same. Here
// every block of its containers comes through two places that throw std::bad_alloc instead; what was
// built so far is given back as the exception passes. The types stay the library's own, because handlers
// of events are handed a `rapidjson::Document`; an allocator of ours would be part of its type.
//
// Both are specialisations of the library's members for its default allocator. So whatever includes a
// header of RapidJSON includes this one and nothing else of it, or the linker would choose between two
// definitions: a ctest keeps it so.
#pragma once

#include <cstddef>
#include <new>
#include <rapidjson/document.h>
#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/reader.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace rapidjson {

/// The values of a document, and the texts in them. `capacity` in bytes, without the chunk's header.
template <>
inline bool MemoryPoolAllocator<CrtAllocator>::AddChunk(std::size_t capacity) {
  if (baseAllocator_ == nullptr) ownBaseAllocator_ = baseAllocator_ = new CrtAllocator();
  void* block = baseAllocator_->Malloc(RAPIDJSON_ALIGN(sizeof(ChunkHeader)) + capacity);
  if (block == nullptr) throw std::bad_alloc();
  chunkHead_ = new (block) ChunkHeader{capacity, 0, chunkHead_};
  return true;
}

/// What a parser or writer holds while it works, and a StringBuffer's text.
template <>
inline void internal::Stack<CrtAllocator>::Resize(std::size_t newCapacity) {
  const std::size_t size = GetSize();
  void* block = allocator_->Realloc(stack_, GetCapacity(), newCapacity);
  if (block == nullptr && newCapacity > 0) throw std::bad_alloc();
  stack_ = static_cast<char*>(block);
  stackTop_ = stack_ + size;
  stackEnd_ = stack_ + newCapacity;
}

}  // namespace rapidjson
