// SPDX-License-Identifier: Apache-2.0
// An agent that knows what it is, and refuses everything else by name.
#include <zamservice/Bases.h>
#include <zamservice/Main.h>

class CAgent final : public zamservice::CZamControlBase {
public:
    zamclientlib::SZamProductInfo GetProductInfo() const override { return {}; }
};

int main(int argc, char** argv) {
    return zamservice::Main(argc, argv, [](const std::string&) { return std::make_shared<CAgent>(); });
}
