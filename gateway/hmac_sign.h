// The webhook's signature: HMAC-SHA256 of the body under the shared secret,
// in lower-case hex, as X-Uhfd-Signature: sha256=HEX carries it.
#pragma once

#include <string>
#include <string_view>

namespace uhfd {

std::string hmac_sha256_hex(std::string_view key, std::string_view message);

}  // namespace uhfd
