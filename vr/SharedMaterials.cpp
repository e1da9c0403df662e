#include "vr/SharedMaterials.h"

#include <map>
#include <mutex>

#include "engine/Material.h"

namespace VR {

namespace {

struct Registry {
    std::mutex mutex;
    std::map<std::string, std::shared_ptr<Brume::Material>> materials;
};

// Never destroyed: releasing programs at process exit would be a GL call without a current context.
Registry& registry() {
    static auto* instance = new Registry();
    return *instance;
}

} // namespace

std::shared_ptr<Brume::Material> SharedMaterials::get(const std::string& name, const Factory& make) {
    Registry& r = registry();
    {
        std::lock_guard<std::mutex> guard(r.mutex);
        const auto found = r.materials.find(name);
        if (found != r.materials.end()) {
            return found->second;
        }
    }
    std::shared_ptr<Brume::Material> made = make();
    std::lock_guard<std::mutex> guard(r.mutex);
    return r.materials.emplace(name, std::move(made)).first->second;
}

void SharedMaterials::releaseAll() {
    Registry& r = registry();
    std::map<std::string, std::shared_ptr<Brume::Material>> released;
    {
        std::lock_guard<std::mutex> guard(r.mutex);
        released.swap(r.materials);
    }
}

} // namespace VR
