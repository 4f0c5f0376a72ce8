// Device and parser registries: fixed tables searched in registration order.
#include "registry.h"

#include <strings.h>

#include <cassert>

#include "codec_util_lock.h"
#include "parser_common.h"

namespace {

reg_bbio_t reg_bbios[BBIO_MAX_NUM];
int reg_bbio_num = 0;
reg_parser_t reg_parsers[PARSER_NUM_MAX];
int reg_parser_num = 0;

using Lock = std::lock_guard<codecutil::RecursiveMutex>;

}  // namespace

codecutil::RecursiveMutex& vesparser::registry_mutex() {
    static codecutil::RecursiveMutex m;
    return m;
}

extern "C" {

VES_API void reg_bbio_init(void) {
    const Lock lock(vesparser::registry_mutex());
    reg_bbio_num = 0;
}

VES_API void reg_bbio_set(char dev_type, char io_mode, bbio_create_t bbio_create) {
    const Lock lock(vesparser::registry_mutex());
    assert(reg_bbio_num < BBIO_MAX_NUM);
    // A release build drops the registration rather than write past the table.
    if (reg_bbio_num >= BBIO_MAX_NUM) return;
    reg_bbios[reg_bbio_num] = reg_bbio_t{dev_type, io_mode, bbio_create};
    ++reg_bbio_num;
}

VES_API bbio_t* reg_bbio_get(char dev_type, char io_mode) {
    bbio_create_t create = nullptr;
    {
        const Lock lock(vesparser::registry_mutex());
        for (int i = 0; i < reg_bbio_num; ++i) {
            const reg_bbio_t& e = reg_bbios[i];
            if (e.dev_type == dev_type && e.io_mode == io_mode) {
                create = e.bbio_create;
                break;
            }
        }
    }
    return create != nullptr ? create(io_mode) : nullptr;
}

VES_API void reg_parser_init(void) {
    const Lock lock(vesparser::registry_mutex());
    reg_parser_num = 0;
}

VES_API void reg_parser_set(char* parser_name, parser_create_t parser_create) {
    const Lock lock(vesparser::registry_mutex());
    assert(reg_parser_num < PARSER_NUM_MAX);
    if (reg_parser_num >= PARSER_NUM_MAX) return;
    reg_parsers[reg_parser_num] = reg_parser_t{parser_name, parser_create};
    ++reg_parser_num;
}

VES_API parser_handle_t reg_parser_get(const char* parser_name, uint32_t dsi_type) {
    if (parser_name == nullptr) return nullptr;
    parser_create_t create = nullptr;
    {
        const Lock lock(vesparser::registry_mutex());
        for (int i = 0; i < reg_parser_num; ++i) {
            const reg_parser_t& e = reg_parsers[i];
            if (e.parser_name != nullptr && strcasecmp(e.parser_name, parser_name) == 0) {
                create = e.parser_create;
                break;
            }
        }
    }
    return create != nullptr ? create(dsi_type) : nullptr;
}

}  // extern "C"
