// Process-wide state of the link layer and the public layer's flags.
#include "globe_var.h"
#include "terminal.h"

ST_Terminal my_terminals[MAX_TERMINALS];
int cur_index = 0;
int terminal_index = 0;
uint8_t closeingflag = 0;

int UHFIsOpen = 0;
int UHF_MODULE_TYPE = 0;

// CRC mode for escaped frames starts on.
uint8_t g_uflagCrc = 1;
