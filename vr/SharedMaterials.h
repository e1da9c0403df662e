#pragma once

#include <functional>
#include <memory>
#include <string>

namespace Brume {
class Material;
}

namespace VR {

// Programs that every object of a class shares, made by the first object that needs one. A program belongs
// to the GL context of the VR run that made it: the run's teardown releases them all while that context is
// still current, and the next run (a host may open VR again in the same process) makes its own. Render
// thread only.
class SharedMaterials {
public:
    using Factory = std::function<std::shared_ptr<Brume::Material>()>;

    // The program kept under `name`, made with `make` when there is none; an exception from `make` passes
    // through and nothing is kept.
    static std::shared_ptr<Brume::Material> get(const std::string& name, const Factory& make);
    // Drops every kept program; objects still holding one keep it alive until they go.
    static void releaseAll();
};

} // namespace VR
