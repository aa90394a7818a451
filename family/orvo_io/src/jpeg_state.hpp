// What reading and writing through libjpeg share.
#pragma once

#include "error_jump.hpp"

#include <cerrno>
// clang-format off
#include <cstdio>
#include <jpeglib.h> // needs cstdio before it
#include <jerror.h>  // needs jpeglib.h before it
// clang-format on

namespace orvo::io {

// `Info` is libjpeg's record of a picture that is read or written.
template <typename Info>
struct JpegState : ErrorJump
{
    static_assert(kMessageBytes >= JMSG_LENGTH_MAX);

    Info info = {};
    jpeg_error_mgr errors = {};
    int systemError = 0; // the number of the system's error that writing met, 0 for none

    // Called once, before the record is made ready; libjpeg keeps both pointers then.
    void listen()
    {
        info.err = jpeg_std_error(&errors);
        info.client_data = this;
        errors.error_exit = onError;
        errors.emit_message = [](j_common_ptr, int) {};
        errors.output_message = [](j_common_ptr) {};
    }

    static JpegState& of(j_common_ptr info) { return *static_cast<JpegState*>(info->client_data); }

private:
    [[noreturn]] static void onError(j_common_ptr info)
    {
        JpegState& state = of(info);
        state.systemError = info->err->msg_code == JERR_FILE_WRITE ? (errno != 0 ? errno : EIO) : 0;
        info->err->format_message(info, state.message);
        state.jump();
    }
};

} // namespace orvo::io
