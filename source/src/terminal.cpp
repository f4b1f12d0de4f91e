// The link table: creation and release of links per transport, selection,
// the JSON link list and the thin exported wrappers.
#include "terminal.h"

#include <cjson/cJSON.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "globe_var.h"
#include "log.h"
#include "transport.h"
#include "uhf/inventory.h"

using namespace uhf;

namespace {

// Text fields of DeviceInfo are fixed arrays; longer text is refused.
bool copy_text(char* dst, size_t cap, const char* src) {
    if (src == nullptr) return false;
    size_t n = strnlen(src, cap);
    if (n >= cap) return false;
    memcpy(dst, src, n);
    dst[n] = '\0';
    return true;
}

constexpr uint8_t kCmdStopInventory = 0x8C;

void send_stop_inventory() { Vexa_Send(kCmdStopInventory, nullptr, 0, cur_index); }

}  // namespace

void setTerminalValue(ST_Terminal* pterminal, DeviceInfo* info) {
    if (pterminal == nullptr || info == nullptr) return;
    // The callback and the receive time survive on purpose: a wrapped slot
    // keeps its old occupant's values.
    pterminal->device_info = *info;
    pterminal->my_socket = 0;
    pterminal->com_handle = 0;
    pterminal->handleRecv = 0;
    pterminal->working = 0;
    pterminal->connected = 0;
    pterminal->stopInventory = 0;
    pterminal->inventory_mode = 0;
    pterminal->recv_task_running = 0;
}

ERROR_STATE dev_tcp_connect(void) { return kTcpBackend.open(my_terminals[cur_index]); }

ERROR_STATE dev_open_usb(void) { return kUsbBackend.open(my_terminals[cur_index]); }

ERROR_STATE dev_open_com(void) { return kSerialBackend.open(my_terminals[cur_index]); }

ERROR_STATE dev_open(void) {
    const Backend* b = backend_of(cur_index);
    ERROR_STATE r = b != nullptr ? b->open(my_terminals[cur_index]) : ERR_FAILURE;
    if (r == ERR_SUCCESS) {
        my_terminals[cur_index].connected = 1;
        UHF_LOG(kLogBase, "terminal %d set connected", cur_index);
    }
    return r;
}

void dev_close(void) {
    ST_Terminal& t = my_terminals[cur_index];
    inventory_quiesce(cur_index);
    if (const Backend* b = backend_of(cur_index)) b->close(t);
}

void release_terminal(int id) {
    if (!slot_ok(id)) return;
    ST_Terminal& t = my_terminals[id];
    if (t.device_info.trans_type != TYPE_INVALID && t.connected) {
        cur_index = id;  // stays pointing at the released slot
        dev_close();
    }
    memset(&t, 0, sizeof t);
    forget_late_replies(id);
}

ERROR_STATE create_link(DeviceInfo* info) {
    if (info == nullptr) return ERR_FAILURE;
    if (terminal_index > MAX_TERMINALS - 1) terminal_index = 0;
    // Selected before it is open, and still selected if opening fails.
    cur_index = terminal_index;
    setTerminalValue(&my_terminals[cur_index], info);
    ERROR_STATE r = dev_open();
    if (r == ERR_SUCCESS) {
        terminal_index++;
        return ERR_SUCCESS;
    }
    release_terminal(cur_index);
    return r;
}

int link_select(int id) {
    if (!slot_ok(id) || my_terminals[id].device_info.trans_type == TYPE_INVALID) return -1;
    cur_index = id;
    return 0;
}

int link_get_selected(void) { return cur_index; }

int link_list(char* linkData, int len) {
    if (len < 1 || linkData == nullptr) return 0;
    UHF_LOG(kLogBase, "link_list");
    cJSON* list = cJSON_CreateArray();
    for (int i = 0; i < MAX_TERMINALS; i++) {
        const ST_Terminal& t = my_terminals[i];
        TRANS_TYPE type = t.device_info.trans_type;
        if (type == TYPE_INVALID) continue;
        UHF_LOG(kLogBase, "terminal %d id is %d", i, static_cast<int>(type));
        cJSON* item = cJSON_CreateObject();
        cJSON_AddNumberToObject(item, "id", i);
        const char* name = type == TYPE_NETWORK ? "NETWORK" : type == TYPE_USB ? "USB" : "SERIAL PORT";
        cJSON_AddStringToObject(item, "type", name);
        if (type == TYPE_NETWORK) {
            cJSON_AddStringToObject(item, "ip", t.device_info.telnet_addr);
            cJSON_AddNumberToObject(item, "port", t.device_info.telnet_port);
        } else if (type == TYPE_SERIAL_PORT) {
            cJSON_AddStringToObject(item, "serial_port", t.device_info.port_path);
        }
        cJSON_AddBoolToObject(item, "connected", t.connected != 0);
        cJSON_AddBoolToObject(item, "working", t.working != 0);
        cJSON_AddItemToArray(list, item);
    }
    char* text = cJSON_Print(list);
    memset(linkData, 0, static_cast<size_t>(len));
    int copy = 0;
    if (text != nullptr) {
        size_t n = strlen(text);
        copy = n < static_cast<size_t>(len) ? static_cast<int>(n) : len - 1;
        memcpy(linkData, text, static_cast<size_t>(copy));
        UHF_LOG(kLogBase, "link list length:%d", copy + 1);
        UHF_LOG(kLogBase, "link list length:%s", text);
    }
    cJSON_Delete(list);
    free(text);
    return copy + 1;
}

void link_close_all(void) {
    for (int i = 0; i < MAX_TERMINALS; i++) release_terminal(i);
}

namespace {

// Zeroed parameters of a new link; network and serial links carry the slot
// they are about to take as their id, USB links 0.
DeviceInfo new_link(TRANS_TYPE type) {
    DeviceInfo info;
    memset(&info, 0, sizeof info);
    info.trans_type = type;
    if (type != TYPE_USB) info.id = terminal_index;
    return info;
}

}  // namespace

int connect_tcp(const char* host, int port) {
    DeviceInfo info = new_link(TYPE_NETWORK);
    info.telnet_port = port;
    if (!copy_text(info.telnet_addr, sizeof info.telnet_addr, host)) return -1;
    return create_link(&info);
}

int disconnect_tcp(void) {
    // The slot the next link would take, not the selected one: that is the call's contract.
    release_terminal(terminal_index);
    return 0;
}

void clean_socket(void) {}

int iusb_open(void) {
    DeviceInfo info = new_link(TYPE_USB);
    return create_link(&info);
}

void iusb_close(void) { release_terminal(cur_index); }

void com_close(void) { release_terminal(cur_index); }

int com_open(const char* port_path, int baud) {
    DeviceInfo info = new_link(TYPE_SERIAL_PORT);
    info.baud = baud;
    if (!copy_text(info.port_path, sizeof info.port_path, port_path)) return -1;
    UHF_LOG(kLogBase, "terminal %d type is %d", cur_index,
            slot_ok(cur_index) ? static_cast<int>(my_terminals[cur_index].device_info.trans_type) : 0);
    return create_link(&info);
}

unsigned long terminal_get_idle_ms(void) {
    unsigned long least = 4294967295UL;
    long long now = getTimestamp();
    for (int i = 0; i < MAX_TERMINALS; i++) {
        // Tests the selected slot, not slot i, and the receive time is never
        // refreshed; the result is part of the call's contract.
        if (!slot_ok(cur_index) || my_terminals[cur_index].device_info.trans_type == TYPE_INVALID) continue;
        unsigned long idle =
            static_cast<unsigned long>(now - static_cast<long long>(my_terminals[i].last_recv_cmd_timestamp));
        if (idle < least) least = idle;
    }
    return least;
}

unsigned long terminal_get_idle_ms_byid(int id) {
    long long now = getTimestamp();
    for (int i = 0; i < MAX_TERMINALS; i++) {
        if (!slot_ok(cur_index) || my_terminals[cur_index].device_info.trans_type == TYPE_INVALID) continue;
        if (my_terminals[i].device_info.id == id)
            return static_cast<unsigned long>(now - static_cast<long long>(my_terminals[i].last_recv_cmd_timestamp));
    }
    return 0;
}

int add_disconnect_callback(void (*callback)(int)) {
    if (!slot_ok(cur_index)) return -1;
    ST_Terminal& t = my_terminals[cur_index];
    if (t.device_info.trans_type == TYPE_INVALID || !t.connected) return -1;
    t.disconnect_callback = callback;
    return 0;
}

// ---- Exported wrappers -----------------------------------------------------

int TCPConnect(const char* hostaddr, int hostport) { return connect_tcp(hostaddr, hostport) == 0 ? 0 : -1; }

void TCPDisconnect(void) { disconnect_tcp(); }

int SetDisconnectCallback(void (*callback)(int)) { return add_disconnect_callback(callback); }

int LinkSelect(int id) { return link_select(id); }

int LinkGetSelected(void) { return link_get_selected(); }

int LinkGetInfo(char* info, int len) { return link_list(info, len); }

void LinkCloseAll(void) { link_close_all(); }

int SendBytes(const unsigned char* pszData, int Len) {
    if (pszData == nullptr) return -1;
    return send_bytes(pszData, static_cast<uint16_t>(Len), cur_index);
}

int RecvBytes(unsigned char* pszData, int Len) {
    if (pszData == nullptr) return -1;
    return recv_bytes(pszData, static_cast<uint16_t>(Len), cur_index);
}

int UsbOpen(void) {
    int r = iusb_open();
    UHF_LOG(kLogFunction, "UHF USB Connect res = %d ", r);
    if (r == 0) send_stop_inventory();  // a reader left inventorying falls quiet
    return r;
}

int UsbClose(void) {
    send_stop_inventory();
    iusb_close();
    return 0;
}

int UsbDeviceLinked(void) { return getUsbDeviceLinked(); }

int ComOpenWithBaud(const char* uart, int baud) {
    if (com_open(uart, baud) != 0) return -1;
    usleep(300000);  // let the module settle after the line opens
    discard_input(cur_index, true);
    send_stop_inventory();
    UHF_MODULE_TYPE = 2;
    UHFIsOpen = 1;
    return 0;
}

int ComOpen(const char* uart) { return ComOpenWithBaud(uart, 115200); }

void ClosePort(void) {
    UHFIsOpen = 0;
    com_close();
}

unsigned long UHF_GetIdleMs(void) { return terminal_get_idle_ms(); }

unsigned long UHF_GetIdleMsById(int id) { return terminal_get_idle_ms_byid(id); }
