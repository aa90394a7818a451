/// The undo states of a tool.
#pragma once

#include <orvo/resource_manager.hpp>
#include <orvo_common/temporary_directory.hpp>
#include <orvo_common/uuid.hpp>
#include <orvo_core/identifier.hpp>

#include <cstddef>
#include <deque>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>

namespace orvo {

/// This many states stay whole in memory; the pictures of older ones go to files.
inline constexpr std::size_t kStatesInMemory = 3;
/// Pictures, and so resource keys, of a state.
inline constexpr std::size_t kStateResources = 3;

/// Saves `data` under a new key and returns the key; the key is empty if there is nothing to save.
template <typename Saved, typename Data>
[[nodiscard]] std::string archivePart(ResourceManager& resources, const std::shared_ptr<Data>& data)
{
    if (!data)
        return {};
    const std::string key = appendMaskExt(generateUUID());
    const auto saved = std::dynamic_pointer_cast<const Saved>(std::shared_ptr<const Data>(data));
    resources.saves[key] = resources.save(key, saved);
    return key;
}

/// States by id. Used on the queue's worker. A State has `id`, `resourceKeys` (empty, or kStateResources keys once
/// archived), `archive(resources)` to save its pictures under new keys, `release()` to release those that are saved,
/// and `load(resources)` to read them back.
template <typename State>
class StateIndex
{
public:
    StateIndex() : resources(getTemporaryDirectory(), std::string()) {}
    ~StateIndex() { resources.clearTempFiles(); }
    StateIndex(const StateIndex&) = delete;
    StateIndex& operator=(const StateIndex&) = delete;

    /// Adds the state as the newest one.
    void push(State state)
    {
        recent.push_back(std::move(state));
        while (recent.size() > kStatesInMemory) {
            State& oldest = recent.front();
            if (oldest.resourceKeys.empty()) // otherwise its files exist, since it was restored from them
                oldest.archive(resources);
            // Released only as a copy in its new place, so that the state stays whole if anything here throws.
            archived.insert_or_assign(oldest.id, oldest).first->second.release();
            recent.pop_front();
        }
    }

    /// A complete copy of the state; one without an id if it is unknown. An archived state becomes the newest again.
    /// Throws what loading throws.
    [[nodiscard]] State find(const std::shared_ptr<const Identifier>& id)
    {
        for (const State& state : recent)
            if (*state.id == *id)
                return state;
        const auto found = archived.find(id);
        if (found == archived.end() || found->second.resourceKeys.size() < kStateResources)
            return {};
        State state = found->second;
        state.load(resources);
        push(state);
        return state;
    }

    [[nodiscard]] std::size_t statesInMemory() const { return recent.size(); }

private:
    std::deque<State> recent; ///< oldest at the front
    std::unordered_map<std::shared_ptr<const Identifier>, State, Hasher, PredEqual> archived;
    ResourceManager resources;
};

} // namespace orvo
