#include "Simulator/Decode/Decoded.h"

#include <fmt/format.h>

#include <algorithm>

namespace Simulator {

namespace {

constexpr std::size_t Width = 100;

void AppendLines(std::string& Text, const std::vector<DecodedItem>& Items, std::size_t Depth) {
    std::size_t NameWidth = 0;
    for (const DecodedItem& Item : Items) {
        NameWidth = std::max(NameWidth, Item.Name.size());
    }
    for (const DecodedItem& Item : Items) {
        const std::string Indent(2 * Depth, ' ');
        std::string Line = fmt::format("{}{:<{}}  {}", Indent, Item.Name, NameWidth, Item.Value);
        if (!Item.Meaning.empty()) {
            const std::string Gap = Item.Value.empty() ? "" : "  ";
            if (Line.size() + Gap.size() + Item.Meaning.size() <= Width) {
                Line += Gap + Item.Meaning;
            } else {
                Text += Line + "\n";
                Line = std::string(Indent.size() + NameWidth + 2, ' ') + Item.Meaning;
            }
        }
        Text += Line.substr(0, Line.find_last_not_of(' ') + 1) + "\n";
        AppendLines(Text, Item.Parts, Depth + 1);
    }
}

nlohmann::ordered_json ToJson(const DecodedItem& Item) {
    if (Item.Parts.empty() && Item.Meaning.empty()) {
        return Item.Value;
    }
    nlohmann::ordered_json Object = nlohmann::ordered_json::object();
    if (!Item.Value.empty()) {
        Object["value"] = Item.Value;
    }
    if (!Item.Meaning.empty()) {
        Object["meaning"] = Item.Meaning;
    }
    Object.update(Simulator::ToJson(Item.Parts));
    return Object;
}

}  // namespace

std::string ToText(const std::vector<DecodedItem>& Items) {
    std::string Text;
    AppendLines(Text, Items, 0);
    return Text;
}

nlohmann::ordered_json RecordJson(std::span<const std::uint8_t> Bytes) {
    try {
        return ToJson(DecodeCper(Bytes));
    } catch (const DecodeError& Error) {
        return {{"error", Error.what()}};
    }
}

nlohmann::ordered_json ToJson(const std::vector<DecodedItem>& Items) {
    nlohmann::ordered_json Object = nlohmann::ordered_json::object();
    for (const DecodedItem& Item : Items) {
        if (!Object.contains(Item.Name)) {
            Object[Item.Name] = ToJson(Item);
            continue;
        }
        nlohmann::ordered_json& Earlier = Object[Item.Name];
        if (!Earlier.is_array()) {
            Earlier = nlohmann::ordered_json::array({Earlier});
        }
        Earlier.push_back(ToJson(Item));
    }
    return Object;
}

}  // namespace Simulator
