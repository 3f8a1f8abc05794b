#include "cards/card_kinds.h"

namespace rack {

namespace {

// A kind with its model, for code that is made for each of them.
template <class CardModel, int Inputs, int Outputs, int Motors, int Counters, int CylindersOnIt>
struct Kind {
  using Model = CardModel;
  static constexpr bool kHasInputs = Inputs > 0;
  static constexpr bool kHasOutputs = Outputs > 0;
  static constexpr bool kHasMotors = Motors > 0;
  static constexpr bool kHasCounters = Counters > 0;
  static constexpr bool kHasCylinders = CylindersOnIt > 0;
};

// Calls the function with the card's kind and the state of that kind; without a card, gives the other result.
template <class Card, class Result, class Function>
Result WithKind(Card& card, Result noCard, Function function) {
  switch (card.kind) {
    case CardKind::None:
      break;
#define RACK_CASE(kind, state, type, inputs, outputs, motors, counters, cylinders, model) \
  case CardKind::kind:                                                                    \
    return function(Kind<model, inputs, outputs, motors, counters, cylinders>(), card.state);
      RACK_CARD_KINDS(RACK_CASE)
#undef RACK_CASE
  }
  return noCard;
}

template <class KindOfCard>
using ModelOf = typename KindOfCard::Model;

}  // namespace

const char* WordOf(ChannelSort sort) {
  switch (sort) {
    case ChannelSort::Input:
      return "input";
    case ChannelSort::Output:
      return "output";
    case ChannelSort::Motor:
      return "motor";
    case ChannelSort::Counter:
      return "counter";
    case ChannelSort::Cylinder:
      return "cylinder";
  }
  return "";
}

void PowerOn(CardState& card, CardKind kind) {
  card = CardState{};
  card.kind = kind;
  WithKind(card, 0, [&](auto sort, auto& state) {
    ModelOf<decltype(sort)>(state).PowerOn(RowOf(kind).type);
    return 0;
  });
}

std::uint8_t ReadCard(CardState& card, std::uint8_t port, Nanos now) {
  return WithKind(card, kOpenBus,
                  [&](auto kind, auto& state) { return ModelOf<decltype(kind)>(state).Read(port, now); });
}

void WriteCard(CardState& card, std::uint8_t port, std::uint8_t value, Nanos now) {
  WithKind(card, 0, [&](auto kind, auto& state) {
    ModelOf<decltype(kind)>(state).Write(port, value, now);
    return 0;
  });
}

Protest ProtestOfRead(CardState& card, std::uint8_t port, Nanos now) {
  return WithKind(card, Protest::None, [&](auto kind, auto& state) {
    return ModelOf<decltype(kind)>(state).ProtestOf(Access::Read, port, 0, now);
  });
}

Protest ProtestOfWrite(CardState& card, std::uint8_t port, std::uint8_t value, Nanos now) {
  return WithKind(card, Protest::None, [&](auto kind, auto& state) {
    return ModelOf<decltype(kind)>(state).ProtestOf(Access::Write, port, value, now);
  });
}

void ApplySetting(CardState& card, const CardSetting& setting, std::int64_t value) {
  WithKind(card, 0, [&](auto /*kind*/, auto& state) {
    setting.set(&state, value);
    return 0;
  });
}

bool InputLevel(const CardState& card, int channel) {
  if (channel < 0 || channel >= InputCount(card)) return false;
  const unsigned levels = WithKind(card, 0U, [](auto kind, const auto& state) -> unsigned {
    if constexpr (decltype(kind)::kHasInputs) return ModelOf<decltype(kind)>::Inputs(state);
    return 0;
  });
  return (levels >> channel & 1) != 0;
}

void SetInputLevel(CardState& card, int channel, bool level) {
  if (channel < 0 || channel >= InputCount(card)) return;
  WithKind(card, 0, [&](auto kind, auto& state) {
    if constexpr (decltype(kind)::kHasInputs) {
      auto& levels = ModelOf<decltype(kind)>::Inputs(state);
      const int bit = 1 << channel;
      levels = static_cast<std::uint16_t>(level ? levels | bit : levels & ~bit);
    }
    return 0;
  });
}

std::uint32_t OutputLevels(const CardState& card) {
  return WithKind(card, 0U, [](auto kind, const auto& state) -> std::uint32_t {
    if constexpr (decltype(kind)::kHasOutputs) return ModelOf<decltype(kind)>::Outputs(state);
    return 0;
  });
}

bool OutputLevel(const CardState& card, int channel) {
  return channel >= 0 && channel < OutputCount(card) && (OutputLevels(card) >> channel & 1) != 0;
}

PulseChannelState* MotorChannel(CardState& card, int channel) {
  if (channel < 0 || channel >= MotorCount(card)) return nullptr;
  return WithKind(card, static_cast<PulseChannelState*>(nullptr),
                  [&](auto kind, auto& state) -> PulseChannelState* {
                    if constexpr (decltype(kind)::kHasMotors) {
                      return ModelOf<decltype(kind)>::Motors(state) + channel;
                    }
                    return nullptr;
                  });
}

void SetMotorStop(CardState& card, int input, bool level, Nanos now) {
  WithKind(card, 0, [&](auto kind, auto& state) {
    if constexpr (decltype(kind)::kHasMotors) {
      ModelOf<decltype(kind)>(state).SetStopInput(input, level, now);
    }
    return 0;
  });
}

std::int64_t CountOf(CardState& card, int channel, Nanos now) {
  if (channel < 0 || channel >= RowOf(card.kind).counters) return 0;
  return WithKind(card, std::int64_t{0}, [&](auto kind, auto& state) -> std::int64_t {
    if constexpr (decltype(kind)::kHasCounters) return ModelOf<decltype(kind)>::Count(state, channel, now);
    return 0;
  });
}

CylinderCardState* Cylinders(CardState& card) {
  return WithKind(card, static_cast<CylinderCardState*>(nullptr),
                  [](auto kind, auto& state) -> CylinderCardState* {
                    if constexpr (decltype(kind)::kHasCylinders) {
                      return &ModelOf<decltype(kind)>::Cylinders(state);
                    }
                    return nullptr;
                  });
}

int SelectedChannel(const CardState& card) {
  return WithKind(card, 0, [](auto kind, const auto& state) -> int {
    if constexpr (decltype(kind)::kHasMotors || decltype(kind)::kHasCylinders) {
      return ModelOf<decltype(kind)>::Selected(state);
    }
    return 0;
  });
}

}  // namespace rack
