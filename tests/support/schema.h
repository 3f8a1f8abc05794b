// A JSON document before a JSON schema of draft 4, as far as the schemas here go.
#pragma once

#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <string>
#include <vector>

class Schema {
 public:
  explicit Schema(nlohmann::json root) : root_(std::move(root)) {}

  // One line for each thing that is not as the schema wants it.
  std::vector<std::string> ErrorsIn(const nlohmann::json& document) const {
    std::vector<std::string> errors;
    Check(root_, document, "", &errors);
    return errors;
  }

 private:
  using Json = nlohmann::json;
  using Errors = std::vector<std::string>;

  static bool IsOfType(const Json& value, const std::string& type) {
    if (type == "object") return value.is_object();
    if (type == "array") return value.is_array();
    if (type == "string") return value.is_string();
    if (type == "integer") return value.is_number_integer();
    if (type == "number") return value.is_number();
    if (type == "boolean") return value.is_boolean();
    return type == "null" && value.is_null();
  }

  void Check(const Json& schema, const Json& value, const std::string& place, Errors* errors) const {
    if (schema.contains("$ref")) {
      const std::string name = schema["$ref"].get<std::string>().substr(1);
      return Check(root_.at(Json::json_pointer(name)), value, place, errors);
    }
    for (const auto& [word, wanted] : schema.items()) CheckWord(schema, word, wanted, value, place, errors);
  }

  void CheckWord(const Json& schema, const std::string& word, const Json& wanted, const Json& value,
                 const std::string& place, Errors* errors) const {
    static const std::set<std::string> remarks = {"$schema",     "title",   "id",
                                                  "description", "default", "definitions"};
    const auto fail = [&](bool wrong) {
      if (wrong) errors->push_back(place + ": " + word + " " + wanted.dump());
    };
    if (word == "type") {
      const Json types = wanted.is_array() ? wanted : Json::array({wanted});
      fail(std::none_of(types.begin(), types.end(), [&](const Json& type) { return IsOfType(value, type); }));
    } else if (word == "properties") {
      if (!value.is_object()) return;
      for (const auto& [name, property] : wanted.items()) {
        if (value.contains(name)) Check(property, value[name], place + "/" + name, errors);
      }
    } else if (word == "additionalProperties") {
      if (!value.is_object()) return;
      for (const auto& [name, member] : value.items()) {
        if (schema.contains("properties") && schema["properties"].contains(name)) continue;
        if (wanted.is_object()) {
          Check(wanted, member, place + "/" + name, errors);
        } else if (wanted == false) {
          errors->push_back(place + ": no " + name + " here");
        }
      }
    } else if (word == "required") {
      for (const Json& name : wanted) fail(value.is_object() && !value.contains(name.get<std::string>()));
    } else if (word == "items") {
      if (!value.is_array()) return;
      for (std::size_t i = 0; i < value.size(); ++i)
        Check(wanted, value[i], place + "/" + std::to_string(i), errors);
    } else if (word == "enum") {
      fail(std::find(wanted.begin(), wanted.end(), value) == wanted.end());
    } else if (word == "minItems") {
      fail(value.is_array() && value.size() < wanted.get<std::size_t>());
    } else if (word == "uniqueItems") {
      fail(wanted == true && value.is_array() &&
           std::set<Json>(value.begin(), value.end()).size() != value.size());
    } else if (word == "minimum") {
      fail(value.is_number() && value < wanted);
    } else if (word == "maximum") {
      fail(value.is_number() && value > wanted);
    } else if (word == "pattern") {
      fail(value.is_string() &&
           !std::regex_search(value.get<std::string>(), std::regex(wanted.get<std::string>())));
    } else if (word == "format") {
      CheckFormat(wanted, value, fail);
    } else if (word == "anyOf" || word == "oneOf") {
      const auto right = std::count_if(wanted.begin(), wanted.end(), [&](const Json& choice) {
        Errors wrong;
        Check(choice, value, place, &wrong);
        return wrong.empty();
      });
      fail(right == 0 || (word == "oneOf" && right > 1));
    } else if (remarks.count(word) == 0) {
      errors->push_back("the schema has \"" + word + "\", which is not looked at");
    }
  }

  template <class Fail>
  static void CheckFormat(const Json& format, const Json& value, Fail fail) {
    if (!value.is_string()) return;
    const std::string text = value;
    const std::regex whole("[A-Za-z][-+.A-Za-z0-9]*:([-._~:/?#@!$&'()*+,;=A-Za-z0-9]|%[0-9A-Fa-f]{2})*");
    const std::regex reference("([-._~:/?#@!$&'()*+,;=A-Za-z0-9]|%[0-9A-Fa-f]{2})*");
    if (format == "uri") fail(!std::regex_match(text, whole));
    if (format == "uri-reference") fail(!std::regex_match(text, reference));
  }

  Json root_;
};
