// Answers on a libmicrohttpd connection: JSON bodies and JSON errors.
#pragma once

#include <microhttpd.h>

#include <nlohmann/json.hpp>
#include <string_view>

namespace uhfd {

MHD_Result answer(MHD_Connection* c, unsigned status, std::string_view body, const char* type);
MHD_Result answer_json(MHD_Connection* c, unsigned status, const nlohmann::json& body);
// {"error": what}
MHD_Result answer_error(MHD_Connection* c, unsigned status, std::string_view what);
// 405 with the Allow header the client needs.
MHD_Result answer_wrong_method(MHD_Connection* c, const char* allow);

}  // namespace uhfd
