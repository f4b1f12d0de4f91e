// handleTransData: one request/reply of a transfer package on the selected
// link. Kept apart from the codecs so they stay free of the link layer.
#include <stdint.h>
#include <string.h>

#include "form_utils.h"
#include "terminal.h"

namespace uhf {
namespace {

constexpr unsigned kMaxSerialised = 7 + sizeof(ST_TransPackage{}.content);
// Stuffing can double every byte and adds two flags and a check byte. A
// 512-byte frame buffer would overflow for packages over 247 content bytes,
// so the send buffer is sized for the largest package instead.
constexpr unsigned kSendCapacity = 2 * kMaxSerialised + 4;
constexpr unsigned kRecvCapacity = 512;

}  // namespace
}  // namespace uhf

using namespace uhf;

int handleTransData(ST_TransPackage* stSend, ST_TransPackage* stRecv) {
    if (stSend == nullptr || stRecv == nullptr) return -1;

    uint8_t frame[kSendCapacity];
    memset(frame, 0, sizeof frame);
    const unsigned short serialised = consistPackage(stSend, frame);
    if (serialised == 0) return -1;  // content length over 512
    const unsigned short frameLen = addPack(frame, serialised);
    if (send_bytes(frame, frameLen, cur_index) < frameLen) return -1;

    // One read: the reply has to be there already, there is no reassembly.
    uint8_t reply[kRecvCapacity];
    const int got = recv_bytes(reply, sizeof reply, cur_index);
    if (got < 1) return -2;
    const unsigned short pkgLen = dropPack(reply, static_cast<unsigned short>(got));
    if (pkgLen == 0) return -3;
    return parsePackage(reply, pkgLen, stRecv) == 0 ? 0 : -1;
}
