// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

/// What a packet may hold: so much that no camera or editor comes near, and so little that reading any packet takes
/// less than a second and 16 MiB besides four times its size. Measured with the toolkit of this build; the largest
/// packet of the samples has 11 KB, 300 names, 12 namespaces and 41 array items.
namespace android::lumo::xmp_limits {

inline constexpr size_t MAX_PACKET = 4 * 1024 * 1024;

/// Elements inside each other. The toolkit recurses; a small packet cannot make it recurse further than a stack holds.
inline constexpr size_t SMALL_PACKET = 64 * 1024;
inline constexpr size_t MAX_DEPTH_SMALL = 1000; ///< about 100 KB of stack
inline constexpr size_t MAX_DEPTH = 100;

/// Names of one parent, which the toolkit searches one by one for each new one.
inline constexpr size_t MAX_SIBLINGS = 4000;
inline constexpr size_t MAX_NAME_LENGTH = 256;

/// Namespaces a packet declares; and those that all packets of a process together may bring, because the toolkit cannot
/// forget one. Above that only packets that bring further ones are refused.
inline constexpr size_t MAX_NAMESPACES = 256;
inline constexpr size_t MAX_NAMESPACE_LENGTH = 512;
inline constexpr size_t MAX_NEW_NAMESPACES = 2048;

/// Bytes of memory for what a packet is made of: the XML tree and the XMP tree stand side by side while it is read. Its
/// text alone takes five times its size.
inline constexpr uint64_t MEMORY = 16 * 1024 * 1024; ///< besides four times the packet's size
inline constexpr uint64_t COST_OF_NAME = 450;        ///< an element or an array item
inline constexpr uint64_t COST_OF_NAME_BYTE = 3;
inline constexpr uint64_t COST_OF_ATTRIBUTE = 350;
inline constexpr size_t SHORT_NAME = 15; ///< of an attribute: takes no memory of its own
/// A line, what an entity, a repaired byte or a bracket cuts off, an instruction.
inline constexpr uint64_t COST_OF_TEXT_PIECE = 212;

/// Bytes that are no UTF-8 text, times the packet's bytes: the toolkit repairs each by a call of its own into the
/// parser, which then looks at an unfinished tag from its beginning again.
inline constexpr uint64_t MAX_REPAIRS_TIMES_SIZE = 500'000'000;

} // namespace android::lumo::xmp_limits
