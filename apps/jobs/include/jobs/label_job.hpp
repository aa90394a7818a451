/// Writes copies of the frames of a focus series or bracket, each with its number in the picture.
#pragma once

#include <jobs/picture_job.hpp>
#include <orvo_io/image_writer.hpp>

#include <filesystem>
#include <vector>

namespace orvo::jobs {

struct LabelJobRequest : PictureJobRequest
{
    std::vector<std::filesystem::path> frames;      ///< in the order of their numbers
    std::filesystem::path folder;                   ///< for the pictures; created if missing
    ImageFileFormat format = ImageFileFormat::Jpeg; ///< of all pictures: they are for viewing
};

struct LabelledFrame
{
    std::filesystem::path source;
    WrittenPicture written;
};

struct LabelJobResult : RunReport
{
    std::filesystem::path folder;
    std::vector<LabelledFrame> frames; ///< the written ones, in the given order
};

/// Checks the request, reads the frames, draws the number and the count into each, and writes the pictures into the
/// folder, each to a temporary file that is renamed. Does not align or correct; raw files are not developed. A picture
/// has the name of its source with the ending of the format; of several sources with one stem the second gets a "-2"
/// and so on. Replaces existing files of the same names. Copies metadata. Resets the process's count of peak plane
/// bytes at the start. Peak: all frames, and one picture more.
///
/// Progress: Check 0, Label 0.02 (opaque), Write from 0.4 after each picture, and 1 at the end.
///
/// Refused: no file, a path given twice in any spelling, a value out of range, a picture that would replace one of the
/// inputs. Failed: everything caused by the files or the machine; for frames with longer sides than the format allows,
/// before any is read. Written pictures remain; a folder that was created and is still empty is removed. Cancelled
/// while checking, after the frames are labelled, and while writing.
[[nodiscard]] LabelJobResult labelJob(const LabelJobRequest& request, const JobCallbacks& callbacks = {});

} // namespace orvo::jobs
