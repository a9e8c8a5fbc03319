#pragma once

#include <cstddef>

// What a document of a state database may hold, the same at every door: the embedded file, a
// server, the command line, an agent. What a door accepts, every reader takes; what is over a limit
// is refused there with its place. docs/operations.md has them for those who publish.
//
// Each number leaves the ones that depend on it room, and where it is used says which.
namespace Qel::Limits {

// One reset cause: what the table answers in one value, and the texts that it does not show.
inline constexpr std::size_t kMostDescriptionOctets = 1024;
inline constexpr std::size_t kMostTextOctets = 65536;
inline constexpr std::size_t kMostCauses = 65536;  // of one reload
inline constexpr std::size_t kMostReloads = 1024;

// The place of a document.
inline constexpr std::size_t kMostPathOctets = 1024;

// One document: each list, map, text, number, bool and null in it is a value, itself included; its
// octets are those of its texts and of the names of its members.
inline constexpr std::size_t kMostDocumentValues = 380000;
inline constexpr std::size_t kMostDocumentOctets = std::size_t{8} << 20;
inline constexpr std::size_t kMostLevels = 32;  // of lists and maps in one another

// An embedded file, and any other text that holds a document: its own octets, and what its
// documents hold together. A document of the greatest size fits in, however it is spelt.
inline constexpr std::size_t kMostFileOctets = std::size_t{64} << 20;
inline constexpr std::size_t kMostFileValues = 1000000;
inline constexpr std::size_t kMostFileDocuments = 4096;

}  // namespace Qel::Limits
