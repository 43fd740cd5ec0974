// SPDX-License-Identifier: MIT
//
// Plays the scenes of tests/scenes, each in a process of its own: below its title, what stands
// behind > is done, one after the other, and the other lines are the boundary log that has to come
// of it, cut down to what the scene shows. A result, a callback or an end without a line before it
// stands on the line of its command.
#include "Boundary.h"
#include "FakeGio.h"
#include "Recorder.h"
#include "Requests.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iomanip>
#include <span>
#include <stdexcept>

namespace
{

using boundary::Add;
using boundary::Quietly;
using requests::Api;
using Words = std::istringstream;

char a, b;                   // user data
GVariant* emitted = nullptr; // while a handler runs
bool throwing = false;

// ---- From the words of a scene, and to its lines

std::string Word(Words& words)
{
    std::string word;
    words >> word;
    return word;
}

int Number(Words& words)
{
    const std::string word = Word(words);
    return word.empty() ? 0 : static_cast<int>(std::stoll(word, nullptr, 0));
}

/** The rest of the line, in which 7*3 stands for 7, 7, 7. */
std::string Rest(Words& words)
{
    std::string text;
    std::getline(words >> std::ws, text);
    for (size_t star = 0; (star = text.find('*')) != std::string::npos;) {
        const size_t before = text.find_last_of(" [", star) + 1;
        const std::string number = text.substr(before, star - before);
        size_t digits = 0;
        std::string numbers = number;
        for (int left = std::stoi(text.substr(star + 1), &digits); left > 1; --left) {
            numbers += ", " + number;
        }
        text.replace(before, star + 1 + digits - before, numbers);
    }
    return text;
}

template <class List>
std::string Shown(const List& list)
{
    std::ostringstream text;
    for (const auto& member : list) {
        if constexpr (std::is_convertible_v<decltype(member), int>) {
            text << ", " << int{member};
        } else {
            text << ", " << member;
        }
    }
    return boundary::Folded(text.str().substr(std::min<size_t>(2, text.str().size())));
}

std::string Shown(const void* data, size_t size)
{
    return Shown(std::span(static_cast<const unsigned char*>(data), size));
}

std::string Of(const void* user)
{
    return std::string(" of ") + (user == &a ? "A" : user == &b ? "B" : "nobody");
}

/** Which bytes the application got to see. */
std::string Whose(const void* data)
{
    const auto* own = static_cast<const char*>(g_variant_get_data(emitted));
    const auto* seen = static_cast<const char*>(data);
    const bool isOwn = seen >= own && seen < own + g_variant_get_size(emitted);
    return isOwn ? " of the signal's own" : " of a copy";
}

// ---- Callbacks

template <class... Parts>
void Called(const Parts&... parts)
{
    if (throwing) {
        throw std::runtime_error("of a callback");
    }
    Add("= callback ", parts...);
}

// ---- What a scene may do

void Emit(Words& words)
{
    const std::string member = Word(words);
    const std::string body = Rest(words);
    emitted = body.empty() ? nullptr : fake::CountedReply(body);
    fake::Emit(member, emitted);
    Quietly([] { g_clear_pointer(&emitted, g_variant_unref); });
}

fake::Outcome Outcome(Words& words)
{
    static const std::map<std::string, fake::Outcome> outcomes = {
        {"works", fake::Outcome::works},
        {"fails", fake::Outcome::fails},
        {"says-nothing", fake::Outcome::failsWithoutError}};
    return outcomes.at(Word(words));
}

/** Each with a callback, or for the tunnel's status, without; its result, if it has one. */
const std::map<std::string, std::function<std::string(bool on, void* user)>> kRegistrations = {
    {"SignalSubscribe",
     [](bool on, void*) {
         SignalSubscribe(on ? [] { Called("signal"); } : ZAVCallBack{});
         return "";
     }},
    {"DisconnectSignalSubscribe",
     [](bool on, void*) {
         DisconnectSignalSubscribe(on ? [] { Called("disconnect"); } : ZAVCallBack{});
         return "";
     }},
    {"SetSendDataToSpkViaSPDIFcb",
     [](bool on, void* user) {
         const ZAVCallBack1 callback = [](const void* data, void* own) {
             Called("spdif ", Shown(data, ZAV_SPDIF_BUFFER), Whose(data), Of(own));
         };
         return std::to_string(SetSendDataToSpkViaSPDIFcb(on ? callback : nullptr, user));
     }},
    {"ExtSpkSetSoundModeChangedCb",
     [](bool on, void* user) {
         const extspk_sound_mode_changed_cb callback = [](int mode, void* own) {
             Called("mode ", mode, Of(own));
         };
         ExtSpkSetSoundModeChangedCb(on ? callback : nullptr, user);
         return "";
     }},
    {"SetDataReceivedFromCommonTunnelExternalcb",
     [](bool on, void* user) {
         const ZavConnectedCallBack connected = [](int now, char* text, void* own) {
             Called("connected ", now, " ", text, Whose(text), Of(own));
         };
         const ZavDataReceivedCallBack data = [](unsigned char* bytes, int size, void* own) {
             Called("data ", Shown(bytes, static_cast<size_t>(size)), Whose(bytes), Of(own));
         };
         return std::to_string(Api::SetDataReceivedFromCommonTunnelExternalcb(
             commonTunnel_external_id_e{3}, on ? connected : nullptr, data, user));
     }},
    {"SubscribeZAVCSharpCallback",
     [](bool, void*) {
         return std::to_string(SubscribeZAVCSharpCallback([](int event, void* data, int size) {
             const void* bytes = nullptr;
             memcpy(&bytes, data, sizeof bytes);
             const auto* buffer = static_cast<char*>(data);
             const auto zeros = std::count(buffer + sizeof bytes, buffer + ZAV_EVENT_BUFFER, 0);
             Called("event ", event, ", ", size, " bytes",
                    bytes == nullptr ? ""
                                     : " " + Shown(bytes, static_cast<size_t>(size)) + Whose(bytes),
                    zeros + static_cast<int>(sizeof bytes) < ZAV_EVENT_BUFFER ? ", and more" : "");
         }));
     }},
};

void Register(Words& words)
{
    const auto call = kRegistrations.at(Word(words));
    const bool on = Word(words) == "with-callback";
    const std::string user = Word(words);
    const std::string result = call(on, user == "A" ? &a : user == "B" ? &b : nullptr);
    if (!result.empty()) {
        Add("= ", result);
    }
}

using Modes = std::list<AudioEffect>;
using Sids = std::list<std::string>;

Modes ModesOf(Words& words)
{
    Modes modes;
    for (int mode = 0; words >> mode;) {
        modes.push_back(AudioEffect{mode});
    }
    return modes;
}

template <auto function>
void Decode(Words& words)
{
    const int from = Number(words);
    Modes modes = ModesOf(words);
    if constexpr (requires { function(&modes, from); }) {
        function(&modes, from);
    } else {
        function(&modes, ListSoundEffect{from});
    }
    Add("= ", Shown(modes));
}

/** Both forms of a request for a list, with a reply of the scene's own: what it wrote. */
void GetLevels(Words& words)
{
    fake::reply = Rest(words);
    const auto written = [](void (*get)(int* levels, int* count)) {
        int count = requests::kUntouched;
        std::vector levels(200, count);
        get(levels.data(), &count);
        levels.resize(static_cast<size_t>(std::max(count, 0)) + 1);
        return std::to_string(count) + ": " + Shown(levels);
    };
    Add("= ", written([](int* list, int* count) { Api::GetEqualizerLevel(list, count); }),
        "; in C ", written([](int* list, int* count) { GetEqualizerLevel(&list, count); }));
}

void GetSpeakers(Words& words)
{
    fake::reply = Rest(words);
    std::vector<SCLSpkInfo> list(3);
    static SCLSpkInfo out[ZAV_MAX_SPEAKERS + 1];
    const int count = Api::GetSCL(list);
    const int exported = GetSCL(out);
    Add("= ", count, ": ", Shown(list.data(), list.size() * sizeof *out), "; in C ", exported, ": ",
        Shown(out, (static_cast<size_t>(std::max(exported, 0)) + 1) * sizeof *out));
}

void GiveNull(Words& /*words*/)
{
    Api::SetEqualizerLevel(nullptr, 5);
    Api::GetEqualizerLevel(nullptr, requests::levels);
    Api::GetEqualizerLevel(requests::levels, nullptr);
    Api::DataReceivedFromSpkViaSPDIF(nullptr, 5);
    Add("= ", Api::SendDataToCommonTunnelExternal(nullptr, 5));
    Add("= ", Api::GetCapabilityCommonTunnelExternal({}, nullptr));
    Add("= ", Api::InitSpeakerManager(nullptr)); // which goes on
    try {
        Add("= ", Api::m_HashModelName(nullptr));
    } catch (const std::logic_error&) {
        Add("= an exception");
    }
}

const std::map<std::string, void (*)(Words&)> kCommands = {
    {"connect", [](Words&) { Quietly([] { Api::InitDbusConnection(); }); }},
    {"bus", [](Words& words) { fake::bus = Outcome(words); }},
    {"record-of-error",
     [](Words& words) {
         fake::error = std::string(static_cast<size_t>(Number(words)), 'x');
         Quietly(Api::InitDbusConnection);
         const auto record = recorder::Record();
         Add("= ", record.size(),
             " bytes: ", Shown(record.first(std::min<size_t>(record.size(), 3))));
     }},
    {"proxy", [](Words& words) { fake::proxy = Outcome(words); }},
    {"reply", [](Words& words) { fake::reply = Rest(words); }},
    {"busy", [](Words&) { fake::lockFailures = 200; }},
    {"show", [](Words& words) { boundary::wanted = Rest(words); }},
    {"null", GiveNull},
    {"levels", GetLevels},
    {"speakers", GetSpeakers},
    {"modes-of-mask", Decode<Api::createSoundEffectList>},
    {"modes-of-selection", Decode<Api::popSoundEffectList>},
    {"modes-in-C",
     [](Words&) {
         int buffer[4] = {7, 7, 7, 7};
         int* list = buffer;
         int count = requests::kUntouched;
         ::GetModeList(&list, &count);
         Add("= ", count, ": ", Shown(buffer));
     }},
    {"sids",
     [](Words& words) {
         Modes modes = ModesOf(words);
         Sids sids{"SID_OF_BEFORE"};
         Api::popSIDList(&sids, &modes);
         Add("= ", Shown(sids));
     }},
    {"modes-with-sids",
     [](Words& words) {
         Modes modes = ModesOf(words);
         Sids sids{"SID_OF_BEFORE"};
         Api::GetModeListwithSID(&modes, &sids);
         Add("= ", modes.size(), " and ", sids.size());
     }},
    {"foreign-flags",
     [](Words& words) {
         SpeakerManagerState state = requests::State(104);
         auto* bytes = reinterpret_cast<unsigned char*>(&state);
         bytes[40] = static_cast<unsigned char>(Number(words));
         bytes[41] = static_cast<unsigned char>(Number(words));
         bytes[42] = bytes[43] = 0xEE; // padding, which is not read
         Api::InitSpeakerManager(&state);
         InitSpeakerManager(state);
     }},
    {"models",
     [](Words& words) {
         std::vector<int> codes;
         for (std::string name; words >> std::quoted(name);) {
             codes.push_back(Api::m_HashModelName(name.c_str()));
         }
         Add("= ", Shown(codes));
     }},
    {"spdif-user", [](Words&) { Add("=", Of(Api::SendDataToSpkViaSPDIF_user_data)); }},
    {"register", Register},
    {"register-all",
     [](Words&) {
         Quietly([] {
             for (const auto& [name, call] : kRegistrations) {
                 call(true, &a);
             }
         });
     }},
    {"emit", Emit},
    {"emit-to-thrower",
     [](Words& words) {
         throwing = true;
         const std::string log = boundary::LogOf([&words] { Emit(words); });
         Add(log.substr(0, log.size() - 1));
     }},
    {"ids",
     [](Words&) {
         Add("= ", Api::m_sigIdSignal, Api::m_sigIdDisconnectSignal, Api::m_sigIdSendDataSpdif,
             Api::m_sigIdReceiveExternalViaCommonTunnel, Api::m_sigIdSoundModeChange,
             Api::m_sigIdNotifyZAVCsharpCallback);
     }},
};

/** A command, or a method of the table with a value of the scene's own. */
void Do(const std::string& line)
{
    Words words(line);
    const std::string name = Word(words);
    if (const auto command = kCommands.find(name); command != kCommands.end()) {
        return command->second(words);
    }
    for (const auto* rows : {&requests::kAll, &requests::kOthers}) {
        for (const Request& row : *rows) {
            if (row.name == name) {
                Add("= ", row.call(Number(words)));
            }
        }
    }
}

void Play(const std::string& scene)
{
    Words lines(scene);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("> ")) {
            line.resize(std::min(line.find(" = "), line.size()));
            Add(line);
            Words commands(line.substr(2));
            for (std::string command; std::getline(commands, command, ';');) {
                Do(command);
            }
        }
    }
    if (!fake::use.HoldsNothing()) {
        Add("= something is still held");
    }
}

/** A file as it comes of playing its scenes. */
std::string Played(const std::string& file)
{
    std::string played;
    for (size_t begin = 0, end = 0; end < file.size(); begin = end + 2) {
        end = std::min(file.find("\n\n", begin), file.size());
        const std::string scene = file.substr(begin, end - begin);
        const std::string log = boundary::LogOf([&scene] { Play(scene); });
        played += (begin != 0 ? "\n" : "") + scene.substr(0, scene.find('\n') + 1) +
                  boundary::Replaced(log, "^(> .*)\n= ", "\\1 = ");
    }
    return played;
}

} // namespace

int main()
{
    boundary::names = {{requests::bytes, "BYTES"}, {requests::levels, "LEVELS"}};
    bool same = true;
    for (const auto& file : std::filesystem::directory_iterator(ZAV_SCENES)) {
        std::ifstream stream(file.path());
        const std::string scenes{std::istreambuf_iterator<char>(stream), {}};
        same = boundary::IsSame(scenes, Played(scenes)) && same;
    }
    return same ? 0 : 1;
}
