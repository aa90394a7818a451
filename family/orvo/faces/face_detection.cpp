#include "faces/face_detection.hpp"

#include "faces/face_boxes.hpp"
#include "faces/face_network.hpp"
#include "networks/network_refusal.hpp"

#include <orvo_common/part_progress.hpp>
#include <orvo_common/wide_path.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_io/settings.hpp>
#include <orvo_logger/logstream.hpp>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/objdetect.hpp>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <optional>
#include <vector>

// Frontal and profile faces: boosted cascades of Haar-like features (Viola and Jones, IJCV 57(2), 2004; Lienhart and
// Maydt, ICIP 2002) and of local binary patterns (Liao et al., ICB 2007), from OpenCV's trained files. A single
// cascade takes some folds of cloth and some windows for faces. Separately trained cascades make different mistakes, so
// a find counts if two of them share it or if both eyes are found where a face has them.
namespace orvo {
namespace {

using Picture = _ImageData<PixelRGB<float>>;

constexpr int kSearchSide = 1280;      // px, longer side of the searched copy: finds a face of 2 percent of it
constexpr int kSmallestFace = 24;      // px in that copy: the window of the cascades
constexpr double kScaleStep = 1.15;    // ratio between searched sizes
constexpr int kFewNeighbours = 3;      // adjacent windows that make a find of one cascade
constexpr double kFineScaleStep = 1.1; // for profiles, which match fewer windows
constexpr int kProfileSupport = 8;     // windows that two profile cascades must have together
constexpr int kSupport = 22;           // windows that two frontal cascades must have together
constexpr int kEyeSearchWidth = 160;   // px, width of the copy of a face that is searched for eyes
constexpr int kEyeNeighbours = 3;
// px of the picture: in narrower faces an eye is smaller than half the window of its cascade, and map signs pass for
// eyes.
constexpr int kNarrowestWithEyes = 60;

const char* const kCascadesKey = "Faces.cascades";
const char* const kModelKey = "Faces.model";
const char* const kDebianFolder = "/usr/share/opencv4"; // of Debian's package opencv-data

unsigned char level(float v)
{
    return static_cast<unsigned char>((v > 0.0f ? std::min(v, 1.0f) : 0.0f) * 255.0f + 0.5f); // NaN is black
}

// Returns `rect` of the picture at `size`, in sRGB, 8 bits, blue first.
cv::Mat colourCopy(const Picture& image, const cv::Rect& rect, cv::Size size)
{
    const auto part = image.resize({size.width, size.height}, {rect.x, rect.y, rect.width, rect.height}, true);
    if (const auto& profile = part->colorProfile(); profile != nullptr && profile->channelCount() == 3)
        part->convertTo(ColorProfileType::sRGB());
    cv::Mat result(size, CV_8UC3);
    forEachRow(size.height, [&](int y) {
        const PixelRGB<float>* const from = part->row(y);
        unsigned char* const to = result.ptr(y);
        for (int x = 0; x < size.width; ++x) {
            to[3 * x] = level(from[x].b);
            to[3 * x + 1] = level(from[x].g);
            to[3 * x + 2] = level(from[x].r);
        }
    });
    return result;
}

cv::Mat greyCopy(const Picture& image, const cv::Rect& rect, cv::Size size)
{
    cv::Mat grey;
    cv::cvtColor(colourCopy(image, rect, size), grey, cv::COLOR_BGR2GRAY);
    return grey;
}

// Cascade files, either in the folder itself or, as in Debian, in one folder for each kind.
class Cascades
{
public:
    Cascades() : folder(orvosettings().get(kCascadesKey, std::string(kDebianFolder))) {}

    // Empty, and recorded as missing, if there is no such file or it is not a cascade.
    cv::CascadeClassifier load(const std::string& name)
    {
        for (const char* const kind : {"", "haarcascades", "lbpcascades"}) {
            const std::filesystem::path file = folder / kind / name;
            std::error_code error;
            if (!std::filesystem::is_regular_file(file, error))
                continue;
            cv::CascadeClassifier cascade;
            try {
                if (cascade.load(file.string())) // narrow name
                    return cascade;
            } catch (const cv::Exception&) { // not XML
            }
        }
        missing += (missing.empty() ? "" : ", ") + name;
        return {};
    }

    std::filesystem::path folder;
    std::string missing; // names, separated by commas
};

struct CascadeSet
{
    std::vector<cv::CascadeClassifier> frontal, profile, eyes;
};

// Empty if there is no way to search for faces.
std::optional<CascadeSet> loadCascades(bool profiles)
{
    Cascades files;
    CascadeSet set;
    for (const char* const name : {"haarcascade_frontalface_alt2.xml", "haarcascade_frontalface_default.xml"})
        set.frontal.push_back(files.load(name));
    for (const char* const name : {"haarcascade_eye.xml", "haarcascade_eye_tree_eyeglasses.xml"})
        set.eyes.push_back(files.load(name));
    const bool frontalComplete = files.missing.empty();
    if (profiles)
        for (const char* const name : {"lbpcascade_profileface.xml", "haarcascade_profileface.xml"})
            set.profile.push_back(files.load(name));
    if (!files.missing.empty())
        details::logWarning("deblurFaces: " +
                            std::string(frontalComplete ? "cannot search for faces in profile"
                                                        : "cannot search for faces, the picture stays unchanged") +
                            "; no usable cascade in " + pathText(files.folder) + " (setting " + kCascadesKey +
                            "): " + files.missing);
    if (!frontalComplete)
        return std::nullopt;
    if (!files.missing.empty())
        set.profile.clear();
    return set;
}

void collect(std::vector<FaceVote>& votes, cv::CascadeClassifier& cascade, int detector, const cv::Mat& grey,
             double scaleStep)
{
    std::vector<cv::Rect> boxes;
    std::vector<int> supports;
    cascade.detectMultiScale(grey, boxes, supports, scaleStep, kFewNeighbours, 0, {kSmallestFace, kSmallestFace});
    for (std::size_t i = 0; i < boxes.size(); ++i)
        votes.push_back({boxes[i], detector, supports[i]});
}

// Faces that look to the left and that both cascades of `profile` find. The second one is slow, so it only searches
// around the finds of the first, fast one.
std::vector<FaceCandidate> findProfiles(const cv::Mat& grey, std::vector<cv::CascadeClassifier>& profile,
                                        const RunControl& run)
{
    if (run.cancelled())
        return {};
    std::vector<FaceVote> first;
    collect(first, profile[0], 0, grey, kFineScaleStep);
    std::vector<FaceCandidate> accepted;
    for (const FaceVote& vote : first) {
        if (run.cancelled())
            return {};
        const cv::Point2d margin(vote.box.width, vote.box.height);
        const cv::Rect around =
            cv::Rect(cv::Rect2d(vote.box.tl() - margin, vote.box.br() + margin)) & cv::Rect(0, 0, grey.cols, grey.rows);
        std::vector<FaceVote> both;
        collect(both, profile[1], 1, grey(around), kFineScaleStep);
        for (FaceVote& second : both)
            second.box += cv::Point2d(around.tl());
        both.push_back(vote);
        for (const FaceCandidate& candidate : gathered(std::move(both)))
            if (candidate.detectors >= 2 && candidate.support >= kProfileSupport)
                accepted.push_back(candidate);
    }
    return accepted;
}

// The pair of eyes in a face, in pixels of the picture; empty unless there are two where eyes belong.
std::vector<FaceDisc> findEyes(const Picture& image, const cv::Rect2d& face, std::vector<cv::CascadeClassifier>& eyes)
{
    const cv::Rect box = cv::Rect(face) & cv::Rect(0, 0, image.width(), image.height());
    if (box.width < kNarrowestWithEyes || box.height < kNarrowestWithEyes)
        return {};
    const double scale = static_cast<double>(kEyeSearchWidth) / box.width;
    const cv::Size size(kEyeSearchWidth, std::max(1, cvRound(scale * box.height)));
    const cv::Mat grey = greyCopy(image, box, size);
    // Anthropometric: pupils are at 0.3 and 0.7 of the width, slightly above the middle of a box from brow to chin.
    const cv::Rect band(0, cvRound(0.15 * size.height), size.width, cvRound(0.45 * size.height));
    const int least = cvRound(0.14 * size.width), most = cvRound(0.4 * size.width);
    for (cv::CascadeClassifier& cascade : eyes) {
        std::vector<cv::Rect> boxes;
        std::vector<int> supports;
        cascade.detectMultiScale(grey(band), boxes, supports, kScaleStep, kEyeNeighbours, 0, {least, least},
                                 {most, most});
        std::optional<FaceDisc> best[2];
        int support[2] = {0, 0};
        for (std::size_t i = 0; i < boxes.size(); ++i) {
            const FaceDisc eye{boxes[i].x + 0.5 * boxes[i].width, band.y + boxes[i].y + 0.5 * boxes[i].height,
                               0.5 * boxes[i].width};
            const int side = eye.x < 0.5 * size.width ? 0 : 1;
            const bool stronger =
                supports[i] > support[side] || (supports[i] == support[side] && best[side] && eye.y < best[side]->y);
            if (stronger) {
                best[side] = eye;
                support[side] = supports[i];
            }
        }
        if (!best[0] || !best[1])
            continue;
        const double dx = best[1]->x - best[0]->x, dy = std::abs(best[1]->y - best[0]->y);
        if (dx < 0.25 * size.width || dx > 0.7 * size.width || dy > 0.4 * dx)
            continue;
        std::vector<FaceDisc> result;
        for (const std::optional<FaceDisc>& eye : best)
            result.push_back({box.x + eye->x / scale, box.y + eye->y / scale, eye->radius / scale});
        return result;
    }
    return {};
}

struct Search
{
    cv::Rect whole;
    cv::Size size;
    double scale = 1.0; // searched copy over picture

    explicit Search(const Picture& image) : whole(0, 0, image.width(), image.height())
    {
        scale = std::min(1.0, static_cast<double>(kSearchSide) / std::max(image.width(), image.height()));
        size = {std::max(1, cvRound(scale * image.width())), std::max(1, cvRound(scale * image.height()))};
    }

    [[nodiscard]] cv::Rect2d inPicture(const cv::Rect2d& box) const
    {
        return {box.x / scale, box.y / scale, box.width / scale, box.height / scale};
    }
};

Face faceOf(const cv::Rect2d& box, std::vector<FaceDisc> eyes)
{
    return {box.x, box.y, box.width, box.height, std::move(eyes)};
}

// Faces that look into the camera: found by two cascades, or by one and confirmed by both eyes.
std::vector<FaceCandidate> findFrontal(const Picture& image, const Search& search, const cv::Mat& grey,
                                       CascadeSet& cascades, const RunControl& run)
{
    int detector = 0;
    std::vector<FaceVote> votes;
    for (cv::CascadeClassifier& cascade : cascades.frontal) {
        if (run.cancelled())
            return {};
        collect(votes, cascade, detector++, grey, kScaleStep);
        run.report(static_cast<float>(detector) / static_cast<float>(cascades.frontal.size()));
    }
    std::vector<FaceCandidate> accepted;
    for (const FaceCandidate& candidate : gathered(std::move(votes))) {
        const bool agreed = candidate.detectors >= 2 && candidate.support >= kSupport;
        if (agreed || !findEyes(image, search.inPicture(candidate.box), cascades.eyes).empty())
            accepted.push_back(candidate);
    }
    return accepted;
}

std::vector<Face> findWithCascades(const Picture& image, bool profiles, const RunControl& run)
{
    std::optional<CascadeSet> cascades = loadCascades(profiles);
    if (!cascades)
        return {};
    const Search search(image);
    const cv::Mat grey = greyCopy(image, search.whole, search.size);
    // Each search of the whole picture takes about as long as any other: two cascades in front, both profiles.
    constexpr float kFrontal = 0.5f;
    constexpr float kLeft = 0.75f;
    const bool hasProfiles = !cascades->profile.empty();
    std::vector<FaceCandidate> accepted =
        findFrontal(image, search, grey, *cascades, partOf(run, 0.0f, hasProfiles ? kFrontal : 1.0f));
    if (hasProfiles) {
        for (const FaceCandidate& left : findProfiles(grey, cascades->profile, run))
            accepted.push_back(left);
        run.report(kLeft);
        cv::Mat mirrored;
        cv::flip(grey, mirrored, 1);
        for (FaceCandidate right : findProfiles(mirrored, cascades->profile, run)) {
            right.box.x = grey.cols - right.box.x - right.box.width;
            accepted.push_back(right);
        }
    }
    std::vector<Face> faces;
    for (const FaceCandidate& candidate : distinct(std::move(accepted))) {
        if (run.cancelled())
            return {};
        const cv::Rect2d box = search.inPicture(candidate.box);
        faces.push_back(faceOf(box, findEyes(image, box, cascades->eyes)));
    }
    return faces;
}

// Empty if the network cannot be used; logs why.
std::optional<std::vector<Face>> findWithNetwork(const Picture& image, const std::string& model)
{
    const auto refuse = [&model](const std::string& reason) {
        details::logWarning("deblurFaces: the network " + model + " (setting " + kModelKey +
                            ") is not usable, searching for faces with cascades: " + reason);
        return std::nullopt;
    };
    try {
        const Search search(image);
        std::vector<Face> faces = facesOfNetwork(model, colourCopy(image, search.whole, search.size));
        for (Face& face : faces) {
            const cv::Rect2d box = search.inPicture({face.x, face.y, face.width, face.height});
            face = faceOf(box, std::move(face.eyes));
            for (FaceDisc& eye : face.eyes)
                eye = {eye.x / search.scale, eye.y / search.scale, eye.radius / search.scale};
        }
        return faces;
    } catch (const cv::Exception& error) {
        return refuse("expected a network that finds faces, found " + details::refusalOf(error));
    } catch (const std::exception& error) {
        return refuse(error.what());
    }
}

} // namespace

std::vector<Face> findFaces(const Picture& image, bool profiles, const RunControl& run)
{
    if (std::min(image.width(), image.height()) < kSmallestFace)
        return {};
    if (const std::string model = orvosettings().get(kModelKey, std::string()); !model.empty()) {
        if (std::optional<std::vector<Face>> faces = findWithNetwork(image, model))
            return *std::move(faces);
        if (run.cancelled())
            return {};
    }
    return findWithCascades(image, profiles, run);
}

} // namespace orvo
