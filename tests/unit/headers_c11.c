/* The public headers must compile as plain C11; report the ABI sizes. */
#include "UHF.h"

#include <stddef.h>

size_t c_sizeof_device_info(void) { return sizeof(DeviceInfo); }
size_t c_sizeof_uhfstack(void) { return sizeof(UHFSTACK); }
size_t c_sizeof_terminal(void) { return sizeof(ST_Terminal); }
size_t c_sizeof_data_cell(void) { return sizeof(ST_UHF_DATA_CELL); }
size_t c_sizeof_trans_package(void) { return sizeof(ST_TransPackage); }
size_t c_offsetof_cell_len(void) { return offsetof(ST_UHF_DATA_CELL, len); }
