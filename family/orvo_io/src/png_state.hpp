// Shared by reading and writing through libpng.
#pragma once

#include "error_jump.hpp"

#include <png.h>

#include <cstdio>

namespace orvo::io {

struct PngState : ErrorJump
{
    png_structp png = nullptr;
    png_infop info = nullptr;
    std::FILE* stream = nullptr;
    int systemError = 0; // errno of a failed write, 0 for none

    // For libpng, with the state as user pointer.
    [[noreturn]] static void onError(png_structp png, png_const_charp text)
    {
        auto& state = *static_cast<PngState*>(png_get_error_ptr(png));
        std::snprintf(state.message, sizeof(state.message), "%s", text);
        state.jump();
    }
    static void onWarning(png_structp, png_const_charp) {}
};

} // namespace orvo::io
