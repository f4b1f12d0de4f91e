#include "hmac_sign.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>

namespace uhfd {

std::string hmac_sha256_hex(std::string_view key, std::string_view message) {
    unsigned char mac[EVP_MAX_MD_SIZE];
    unsigned int len = 0;
    HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()), reinterpret_cast<const unsigned char*>(message.data()),
         message.size(), mac, &len);
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string hex;
    for (unsigned int i = 0; i < len; i++) {
        hex += kDigits[mac[i] >> 4];
        hex += kDigits[mac[i] & 0xF];
    }
    return hex;
}

}  // namespace uhfd
