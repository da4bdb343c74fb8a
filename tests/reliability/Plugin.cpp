// SPDX-License-Identifier: Apache-2.0
// A plugin, loaded with RTLD_LOCAL. Built once by the tree's compiler and once by the other one, when it is there.
#include "tests/reliability/Plugin.h"

#include <apigen/CApiClientInvoker.h>
#include <apigen/CXmlData.h>

#include <chrono>

#include "tests/reliability/PluginErrors.h"

extern "C" {

__attribute__((visibility("default"))) void ReliabilityThrow(int kind) {
    reliability::ThrowKind(kind);
}

__attribute__((visibility("default"))) bool ReliabilityCatch(reliability::ThrowFunction thrower, int kind) {
    return reliability::CatchesKind(thrower, kind);
}

__attribute__((visibility("default"))) void ReliabilityCall(const char* program) {
    const auto invoker = apigen::CApiClientInvoker::CreateByProcess(program, {"out=45", "then=kill"}, nullptr,
                                                                    std::chrono::seconds(20), nullptr);
    invoker->Invoke(apigen::CXmlData::CreateNew());
}

}  // extern "C"
