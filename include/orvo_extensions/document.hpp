/// The document model: layers contain edits, edits name a tool and its effects, and records carry values between them
/// and an image processor.
///
/// These classes are data that other libraries fill. They store values, return them, and fix the order of an effect's
/// operations; they run no pipeline. A type that is only passed on says so in its header and contains no more than that
/// requires. docs/documents.md gives the overview.
///
/// Conventions: an object belongs to one thread at a time; const functions may be called from several. Pictures are
/// shared through std::shared_ptr, and are const if they must not change. Accessors throw nothing but std::bad_alloc.
#pragma once

#include <orvo/deblur_ai_effect.hpp>
#include <orvo_core/identifier.hpp>
#include <orvo_extensions/document/adjustment_layer.hpp>
#include <orvo_extensions/document/base_layer.hpp>
#include <orvo_extensions/document/destructive_processor.hpp>
#include <orvo_extensions/document/edit.hpp>
#include <orvo_extensions/document/edit_collection.hpp>
#include <orvo_extensions/document/edit_records.hpp>
#include <orvo_extensions/document/effect.hpp>
#include <orvo_extensions/document/effect_call_context.hpp>
#include <orvo_extensions/document/effect_records.hpp>
#include <orvo_extensions/document/image_detection.hpp>
#include <orvo_extensions/document/image_layer.hpp>
#include <orvo_extensions/document/image_processor.hpp>
#include <orvo_extensions/document/image_processor_interface.hpp>
#include <orvo_extensions/document/image_provider.hpp>
#include <orvo_extensions/document/layer.hpp>
#include <orvo_extensions/document/parameter.hpp>
#include <orvo_extensions/document/preset_util.hpp>
#include <orvo_extensions/document/processor_adaptor.hpp>
#include <orvo_extensions/document/processor_records.hpp>
#include <orvo_extensions/document/resource_handler.hpp>
#include <orvo_extensions/document/tool_description.hpp>
#include <orvo_extensions/document/transformation.hpp>
