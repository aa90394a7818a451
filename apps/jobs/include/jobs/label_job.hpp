/// Writes the frames of a focus series or bracket once more, each with its number in the picture.
#pragma once

#include <jobs/picture_job.hpp>
#include <orvo_io/image_writer.hpp>

#include <filesystem>
#include <vector>

namespace orvo::jobs {

struct LabelJobRequest : PictureJobRequest
{
    std::vector<std::filesystem::path> frames;      ///< in the order in which they are numbered
    std::filesystem::path folder;                   ///< for the pictures; made if it is not there
    ImageFileFormat format = ImageFileFormat::Jpeg; ///< of all pictures: they are made to be looked at
};

struct LabelledFrame
{
    std::filesystem::path source;
    WrittenPicture written;
};

struct LabelJobResult : RunReport
{
    std::filesystem::path folder;
    std::vector<LabelledFrame> frames; ///< those that are written, in the order given
};

/// Checks the request before anything starts, reads the frames, writes into each which one of how many it is, and
/// writes the pictures into the folder, each beside its place and renamed. Nothing is aligned or corrected; raw files
/// are shown as the sensor saw them, undeveloped. A picture is named after its source with the ending of the format; of
/// several sources of one stem the second one's name ends in "-2" and so on. Other files in the folder are replaced if
/// their names say so. Metadata are carried over. The count of peak plane bytes of the process is reset at the start.
/// Peak: all frames, and one picture more.
///
/// Progress: Check 0, Label 0.02 (opaque), Write from 0.4 on after each picture, and 1 at the end.
///
/// Refused: no file, a path given twice in whatever spelling, a value out of range, a picture that would replace one of
/// the inputs. Failed: everything that the files or the machine cause; frames with
/// longer sides than the format takes before any is read; pictures that are written stay, and a folder
/// that was made and is empty goes. Cancelled while checking, after the frames are labelled, and while writing.
[[nodiscard]] LabelJobResult labelJob(const LabelJobRequest& request, const JobCallbacks& callbacks = {});

} // namespace orvo::jobs
