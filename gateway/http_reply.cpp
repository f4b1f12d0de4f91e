#include "http_reply.h"

namespace uhfd {

namespace {

MHD_Response* copy_of(std::string_view body, const char* type) {
    MHD_Response* r =
        MHD_create_response_from_buffer(body.size(), const_cast<char*>(body.data()), MHD_RESPMEM_MUST_COPY);
    if (r) MHD_add_response_header(r, "Content-Type", type);
    return r;
}

MHD_Result queue(MHD_Connection* c, unsigned status, MHD_Response* r) {
    if (!r) return MHD_NO;
    MHD_Result ok = MHD_queue_response(c, status, r);
    MHD_destroy_response(r);
    return ok;
}

}  // namespace

MHD_Result answer(MHD_Connection* c, unsigned status, std::string_view body, const char* type) {
    return queue(c, status, copy_of(body, type));
}

MHD_Result answer_json(MHD_Connection* c, unsigned status, const nlohmann::json& body) {
    // Names and settings come from files and readers: replace, never throw, on bad UTF-8.
    return answer(c, status, body.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace), "application/json");
}

MHD_Result answer_error(MHD_Connection* c, unsigned status, std::string_view what) {
    return answer_json(c, status, {{"error", what}});
}

MHD_Result answer_wrong_method(MHD_Connection* c, const char* allow) {
    MHD_Response* r = copy_of(R"({"error":"method not allowed"})", "application/json");
    if (r) MHD_add_response_header(r, "Allow", allow);
    return queue(c, MHD_HTTP_METHOD_NOT_ALLOWED, r);
}

}  // namespace uhfd
