// Struct layouts are ABI: the C and C++ views must agree and keep their sizes.
#include <gtest/gtest.h>

#include "UHF.h"

extern "C" {
size_t c_sizeof_device_info(void);
size_t c_sizeof_uhfstack(void);
size_t c_sizeof_terminal(void);
size_t c_sizeof_data_cell(void);
size_t c_sizeof_trans_package(void);
size_t c_offsetof_cell_len(void);
}

TEST(Abi, SharedStructSizesMatchBetweenCAndCpp) {
    EXPECT_EQ(c_sizeof_device_info(), 212u);
    EXPECT_EQ(sizeof(DeviceInfo), 212u);
    EXPECT_EQ(c_sizeof_uhfstack(), 84u);
    EXPECT_EQ(sizeof(UHFSTACK), 84u);
    EXPECT_EQ(c_sizeof_terminal(), sizeof(ST_Terminal));
    EXPECT_EQ(c_sizeof_data_cell(), sizeof(ST_UHF_DATA_CELL));
    EXPECT_EQ(c_sizeof_trans_package(), sizeof(ST_TransPackage));
    EXPECT_EQ(c_offsetof_cell_len(), 2u);  // type is one byte, len a uint16
    EXPECT_EQ(sizeof(TRANS_TYPE), 4u);
}
