#include <jobs/job.hpp>

namespace orvo::jobs {

const char* stepName(JobStep step)
{
    switch (step) {
    case JobStep::Check:
        return "check";
    case JobStep::Group:
        return "group";
    case JobStep::Render:
        return "render";
    case JobStep::Load:
        return "load";
    case JobStep::Ladder:
        return "ladder";
    case JobStep::Blend:
        return "blend";
    case JobStep::Finish:
        return "finish";
    case JobStep::Stack:
        return "stack";
    case JobStep::Label:
        return "label";
    case JobStep::Upscale:
        return "upscale";
    case JobStep::Fill:
        return "fill";
    case JobStep::Request:
        return "request";
    case JobStep::Answer:
        return "answer";
    case JobStep::Apply:
        return "apply";
    case JobStep::Stitch:
        return "stitch";
    case JobStep::Write:
        return "write";
    case JobStep::Batch:
        return "batch";
    }
    return "";
}

const char* stepText(JobStep step)
{
    switch (step) {
    case JobStep::Check:
        return "checking the files";
    case JobStep::Group:
        return "grouping the pictures";
    case JobStep::Render:
        return "rendering the scene";
    case JobStep::Load:
        return "reading the frames";
    case JobStep::Ladder:
        return "matching the frames";
    case JobStep::Blend:
        return "blending";
    case JobStep::Finish:
        return "finishing";
    case JobStep::Stack:
        return "stacking the frames";
    case JobStep::Label:
        return "labelling the frames";
    case JobStep::Upscale:
        return "enlarging the picture";
    case JobStep::Fill:
        return "filling the hole";
    case JobStep::Request:
        return "preparing the picture";
    case JobStep::Answer:
        return "generating new pixels";
    case JobStep::Apply:
        return "blending them in";
    case JobStep::Stitch:
        return "stitching the pictures";
    case JobStep::Write:
        return "writing";
    case JobStep::Batch:
        return "running the jobs";
    }
    return "";
}

} // namespace orvo::jobs
