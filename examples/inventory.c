/* The smallest useful program: connect to a reader over TCP, run a
 * continuous inventory for two seconds, print every EPC read, close.
 *
 *   cc inventory.c $(pkg-config --cflags --libs uhfhost) -o inventory
 *   ./inventory 192.168.1.50 8888
 */
#include <stdio.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <UHF.h>

static long long now_ms(void) {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return (long long)ts.tv_sec * 1000 + ts.tv_nsec / 1000000;
}

int main(int argc, char** argv) {
    if (argc < 3) {
        fprintf(stderr, "usage: %s HOST PORT\n", argv[0]);
        return 2;
    }
    if (TCPConnect(argv[1], atoi(argv[2])) != 0) {
        fprintf(stderr, "cannot connect to %s:%s\n", argv[1], argv[2]);
        return 3;
    }
    if (UHFInventory() != 0) {
        fprintf(stderr, "the reader did not start the inventory\n");
        LinkCloseAll();
        return 1;
    }
    int reads = 0;
    long long end = now_ms() + 2000;
    while (now_ms() < end) {
        uint8_t tag[512]; /* UII length, PC+EPC, data length, data, RSSI, antenna */
        int len = 0;
        if (UHF_GetReceived_EX(&len, tag) != 0) {
            usleep(10000); /* queue empty: look again in 10 ms */
            continue;
        }
        int uii = tag[0];
        int rssi = (int16_t)(tag[len - 3] << 8 | tag[len - 2]);
        printf("EPC ");
        for (int i = 3; i <= uii; i++) printf("%02X", tag[i]); /* skip the PC word */
        printf("  RSSI %.1f dBm  antenna %d\n", rssi / 10.0, tag[len - 1]);
        reads++;
    }
    int stopped = UHFStopGet();
    LinkCloseAll();
    printf("%d reads%s\n", reads, stopped == 0 ? "" : " (the reader did not confirm the stop)");
    return reads > 0 ? 0 : 1;
}
