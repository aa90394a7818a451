/// Everything that the library exports, and what its users need of the libraries under it: to read and write pictures,
/// to set up the process, and to limit its threads and memory. The quickest start is requests.hpp.
///
/// One header is left out: panorama_mblender.hpp, whose interface is made of OpenCV's matrices.
#pragma once

#include <orvo_common/memory_manager.hpp>
#include <orvo_common/wide_path.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_extensions/bracket.hpp>
#include <orvo_extensions/document.hpp>
#include <orvo_extensions/effect_identifiers.hpp>
#include <orvo_extensions/failure.hpp>
#include <orvo_extensions/focus_stack.hpp>
#include <orvo_extensions/generative_erase.hpp>
#include <orvo_extensions/generative_expand.hpp>
#include <orvo_extensions/generative_processor.hpp>
#include <orvo_extensions/generative_restoration.hpp>
#include <orvo_extensions/hdr.hpp>
#include <orvo_extensions/masked_image.hpp>
#include <orvo_extensions/operations.hpp>
#include <orvo_extensions/panorama.hpp>
#include <orvo_extensions/panorama_preview_composer.hpp>
#include <orvo_extensions/picture_groups.hpp>
#include <orvo_extensions/picture_input.hpp>
#include <orvo_extensions/preview.hpp>
#include <orvo_extensions/radiance.hpp>
#include <orvo_extensions/requests.hpp>
#include <orvo_extensions/upscale.hpp>
#include <orvo_extensions/warp_type.hpp>
#include <orvo_extensions/watermark.hpp>
#include <orvo_io/image_reader.hpp>
#include <orvo_io/image_writer.hpp>
#include <orvo_io/settings.hpp>
#include <orvo_logger/logstream.hpp>
