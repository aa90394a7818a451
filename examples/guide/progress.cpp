// progress FRAME...: merges a focus series in a thread, shows its progress, and stops it half way.
#include <orvo_extensions/orvo_extensions.hpp>

#include <cstdio>
#include <stop_token>
#include <thread>

int main(int argc, char** argv)
{
    int shown = 0;
    std::stop_source stop; // a window has a button for it
    const auto showProgress = [&](float share) {
        ++shown;
        if (share > 0.5f)
            stop.request_stop();
    };
    orvo::FocusStackRequest request;
    request.pictures.assign(argv + 1, argv + argc);
    orvo::OperationResult result;

    // [progress]
    request.progress = showProgress; // receives 0 to 1
    request.cancel = [token = stop.get_token()] { return token.stop_requested(); };

    std::jthread worker([&] { result = orvo::perform(request); });
    // elsewhere, from any thread: stop.request_stop();
    // [progress]

    worker.join();
    std::printf("%d reports, then %s\n", shown, result.failure ? result.failure->sentence.c_str() : "done");
    return shown > 1 && result.failure && result.failure->kind == orvo::FailureKind::Cancelled ? 0 : 1;
}
