#include "utf8Output.h"

#include <nlohmann/json.hpp>

using nlohmann::json;

json Utf8Output::valid(const json& value) {
    // The library's replacing dump, read back.
    return json::parse(value.dump(-1, ' ', false, json::error_handler_t::replace));
}

Utf8Output::~Utf8Output() {
    sync();
}

Utf8Output::int_type Utf8Output::overflow(int_type character) {
    if (traits_type::eq_int_type(character, traits_type::eof())) {
        return traits_type::not_eof(character);
    }
    pending.push_back(traits_type::to_char_type(character));
    if (pending.back() == '\n') {
        sync();
    }
    return character;
}

int Utf8Output::sync() {
    if (!pending.empty()) {
        target << valid(pending).get<std::string>();
        pending.clear();
    }
    target.flush();
    return target ? 0 : -1;
}
