/*
 * uhfhost: host library for UHF RFID reader modules.
 *
 * Including this header gives the whole API. Unless a function says
 * otherwise it acts on the selected link (see terminal.h), makes one
 * request/response exchange and returns 0 on success, -1 on failure (no
 * reply within 1.5 s, a reply with another code, or a refused status). A few
 * calls return a positive count on success; treat non-negative as success
 * unless noted.
 */
#ifndef UHF_UHF_H
#define UHF_UHF_H

#include <stdint.h>

#include "form_utils.h"
#include "globe_var.h"
#include "SerialPort.h"
#include "terminal.h"
#include "uhf_export.h"

UHF_BEGIN_DECLS

/* ==== Continuous inventory ============================================== */

/* ==== Single-shot inventory ============================================= */

/* ==== Tag memory ======================================================== */

/* ==== Lock, kill and security =========================================== */

/* ==== Escaped-frame detection thread and frame stack ==================== */

/* ==== Power, antennas and region ======================================== */

/* ==== Frequency hopping and RF link ===================================== */

/* ==== Gen2 parameters and inventory modes =============================== */

/* ==== Device status, identity and I/O =================================== */

/* ==== Firmware upgrade ================================================== */

/* ==== QT memory views =================================================== */

/* ==== Network settings and reset ======================================== */

/* ==== Sensor tags ======================================================= */

/* ==== Packaged frame, configuration, partitions, pass-through =========== */

UHF_END_DECLS

#endif
