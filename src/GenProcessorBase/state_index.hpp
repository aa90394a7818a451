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

/// At most this many states are whole in memory; older ones have their heavy parts in files.
inline constexpr std::size_t kStatesInMemory = 3;
/// Heavy parts of a state, and so keys.
inline constexpr std::size_t kStateResources = 3;

/// Saves `data` under a fresh key, which is returned, and lets go of it; nothing to save has an empty key.
template <typename Saved, typename Data>
[[nodiscard]] std::string archivePart(ResourceManager& resources, std::shared_ptr<Data>& data)
{
    if (!data)
        return {};
    const std::string key = appendMaskExt(generateUUID());
    const auto saved = std::dynamic_pointer_cast<const Saved>(std::shared_ptr<const Data>(data));
    resources.saves[key] = resources.save(key, saved);
    data.reset();
    return key;
}

/// States by their ids, on the queue's worker. A State has `id`, `resourceKeys` (empty, or kStateResources keys once it
/// was archived), `archive(resources)`, which saves its heavy parts under new keys and lets go of them, `release()`,
/// which lets go of those that have keys already, and `load(resources)`, which reads them back.
template <typename State>
class StateIndex
{
public:
    StateIndex() : resources(getTemporaryDirectory(), std::string()) {}
    ~StateIndex() { resources.clearTempFiles(); }
    StateIndex(const StateIndex&) = delete;
    StateIndex& operator=(const StateIndex&) = delete;

    /// The state becomes the newest.
    void push(State state)
    {
        recent.push_back(std::move(state));
        while (recent.size() > kStatesInMemory) {
            State& oldest = recent.front();
            if (oldest.resourceKeys.empty())
                oldest.archive(resources);
            else
                oldest.release(); // restored before, so its files are there
            const auto id = oldest.id;
            archived.insert_or_assign(id, std::move(oldest));
            recent.pop_front();
        }
    }

    /// A copy of the state, whole; one without an id if there is none. What was archived becomes the newest. Throws
    /// what loading throws.
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
