// Digests and UUIDs for identity: MD5 and SHA-1 through OpenSSL's EVP interface, RFC 4122
// UUIDs (random version 4, name-based version 5) in their canonical upper-case text.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace rkv::internal {

enum class DigestAlgorithm { md5, sha1 };

// The raw digest of `data`; absent when OpenSSL cannot compute it.
std::optional<std::string> digestOf(DigestAlgorithm algorithm, std::string_view data);

// Two lower-case hexadecimal digits per byte.
std::string lowerHex(std::string_view bytes);

using UUIDBytes = std::array<uint8_t, 16>;

// "XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX" in upper case.
std::string uuidString(const UUIDBytes& bytes);

// The 16 bytes of a UUID text in the 8-4-4-4-12 form, hexadecimal digits of either case;
// absent for anything else.
std::optional<UUIDBytes> parseUUID(std::string_view text);

// A random (version 4) UUID from the kernel's random source.
UUIDBytes randomUUID();

// The name-based (version 5, SHA-1) UUID of `name` in `nameSpace`; absent when OpenSSL offers no
// SHA-1.
std::optional<UUIDBytes> nameBasedUUID(const UUIDBytes& nameSpace, std::string_view name);

// The 128-bit identifier of a machine-id(5) text: 32 hexadecimal digits, optionally followed by
// white space (the file ends in a newline). Absent for anything else, including the all-zero
// identifier and systemd's "uninitialized" placeholder.
std::optional<UUIDBytes> machineIDFromText(std::string_view text);

}  // namespace rkv::internal
