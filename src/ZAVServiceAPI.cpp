// SPDX-License-Identifier: MIT
//
// The class, subject by subject: what the operations of a subject share stands in front of them.
#include "ZAVServiceAPI.h"

#include "LogPoint.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string_view>
#include <thread>
#include <tuple>
#include <type_traits>
#include <unistd.h>

// -------------------------------------------------------------------------------------- Connection

GDBusConnection* ZAVServiceAPI::connection = nullptr;
GDBusProxy* ZAVServiceAPI::proxy = nullptr;
bool ZAVServiceAPI::m_bDBusConnectionState = false;
guint ZAVServiceAPI::m_sigIdSignal = 0;
guint ZAVServiceAPI::m_sigIdDisconnectSignal = 0;
guint ZAVServiceAPI::m_sigIdSendDataSpdif = 0;
guint ZAVServiceAPI::m_sigIdReceiveExternalViaCommonTunnel = 0;
guint ZAVServiceAPI::m_sigIdSoundModeChange = 0;
guint ZAVServiceAPI::m_sigIdNotifyZAVCsharpCallback = 0;

namespace
{

constexpr const char* kService = "org.kelmar.tv.zav"; // bus name and interface
constexpr const char* kPath = "/org/kelmar/tv/zav";

/** Serialises the calls through the proxy; only ever taken by polling. */
GMutex zav_api_proxy_mutex;

int InitProxyMutex()
{
    g_mutex_init(&zav_api_proxy_mutex);
    return 1;
}

// Every word that one thread may write while others read it, here and in the C functions, is
// accessed as a whole and in order: a plain word to debuggers and bindings, an atomic one to us.

template <class T>
T Load(T& word)
{
    return std::atomic_ref<T>(word).load(std::memory_order_acquire);
}

template <class T>
void Store(T& word, std::type_identity_t<T> value)
{
    std::atomic_ref<T>(word).store(value, std::memory_order_release);
}

guint Subscribe(GDBusConnection* bus, const char* member, GDBusSignalCallback handler)
{
    return g_dbus_connection_signal_subscribe(bus, nullptr, kService, member, kPath, nullptr,
                                              G_DBUS_SIGNAL_FLAGS_NONE, handler, nullptr, nullptr);
}

/** Takes over what an attempt has made. Who sees the proxy, which comes last, sees all the rest. */
template <class Site>
bool Publish(GDBusConnection*& bus, GDBusProxy*& service)
{
    using Api = ZAVServiceAPI;
    LOG_POINT_FOR(Site, DLOG_INFO, "connection=%p, proxy = %p", static_cast<const void*>(bus),
                  static_cast<const void*>(service));
    Store(Api::connection, bus);
    Store(Api::m_bDBusConnectionState, true);
    Api::m_sigIdSignal = Subscribe(bus, "InvokeSignalHandler", Api::m_OnSignalCallBack);
    Api::m_sigIdDisconnectSignal =
        Subscribe(bus, "DisconnectSignalHandler", Api::m_OnDisconnectSignalCallBack);
    Api::m_sigIdSendDataSpdif =
        Subscribe(bus, "sendDataViaSpdif", Api::m_OnSendDataViaSpdifSignalCallBack);
    Api::m_sigIdReceiveExternalViaCommonTunnel =
        Subscribe(bus, "receiveExternalDataViaCommonTunnel",
                  Api::m_OnReceiveExternalDataViaCommonTunnelCallBack);
    Api::m_sigIdSoundModeChange =
        Subscribe(bus, "SetCbSoundModeChange", Api::m_OnSoundModeChangeEvent);
    Api::m_sigIdNotifyZAVCsharpCallback =
        Subscribe(bus, "notifyZAVCsharpCallback", Api::NotifyZAVCsharpCallback);
    Store(Api::proxy, g_steal_pointer(&service));
    bus = nullptr; // kept for good, as the proxy is
    return true;
}

} // namespace

int ZAVServiceAPI::InitDbusConnection()
{
    LOG_SITE(Here);
    LOG_POINT(DLOG_INFO, "Called");
    if (Load(proxy) != nullptr) {
        LOG_POINT(DLOG_INFO, "Already initialized... ");
        return 0;
    }
    // 0 at load, 1 once the mutex is there; a second first caller waits here for the first.
    [[maybe_unused]] static const int zav_api_proxy_mutex_init = InitProxyMutex();

    g_autoptr(GError) error = nullptr;
    g_autoptr(GDBusConnection) bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
    if (bus == nullptr) {
        if (error != nullptr) {
            LOG_POINT(DLOG_ERROR, "Bus get sync failed: %s", error->message);
        } else {
            LOG_POINT(DLOG_ERROR, "Bus get sync failed");
        }
        return -1;
    }
    g_autoptr(GDBusProxy) service = g_dbus_proxy_new_sync(
        bus, G_DBUS_PROXY_FLAGS_NONE, nullptr, kService, kPath, kService, nullptr, &error);
    if (service == nullptr) {
        if (error != nullptr) {
            LOG_POINT(DLOG_ERROR, "Bus proxy new failed: %s\n", error->message);
        } else {
            LOG_POINT(DLOG_ERROR, "Bus get sync failed"); // the bus's text here too, on purpose
        }
        return -1;
    }
    // Threads may get here side by side. The first publishes what it made; the others wait for
    // that, and release theirs. An exception of the trace library leaves it to the next.
    [[maybe_unused]] static const bool published = Publish<Here>(bus, service);
    return 0;
}

void ZAVServiceAPI::FiniDbusConnection()
{
    LOG_POINT(DLOG_INFO, "FiniDbusConnection ");
}

// -------------------------------------------------------------------------------- The guarded call

namespace
{

constexpr int kAttempts = 100;        // for a turn on the proxy,
constexpr useconds_t kPause = 10'000; // µs after each that failed
constexpr int kCallTimeout = 5000;    // ms

// The steps of a request. Each is a template over the operation's site, so that every operation
// has log points of its own for it.

template <class Site>
void Announce()
{
    LOG_POINT_FOR(Site, DLOG_INFO, "Sending Integer Data to ZAVService.....");
}

template <class Site, class T>
void Announce(T value)
{
    LOG_POINT_FOR(Site, DLOG_INFO, "Sending Integer Data to ZAVService %d.....", value);
}

template <class Site>
bool HasProxy()
{
    if (Load(ZAVServiceAPI::proxy) != nullptr) {
        return true;
    }
    LOG_POINT_FOR(
        Site, DLOG_ERROR,
        "Error::Please initialize Dbus Connection by calling InitDbusConnection function");
    return false;
}

template <class Site>
bool LockProxy()
{
    for (int budget = kAttempts; budget > 0; --budget) {
        if (g_mutex_trylock(&zav_api_proxy_mutex) != FALSE) {
            return true;
        }
        LOG_POINT_FOR(Site, DLOG_ERROR, "%s API is busy. wait 10msec\ttimeout %d", Site::Name(),
                      budget);
        usleep(kPause);
    }
    LOG_POINT_FOR(Site, DLOG_ERROR, "API is busy. give up");
    return false;
}

/**
 * A request's turn on the proxy, for a scope; false when it is refused. The reply is declared
 * after it, so that it is released before the next request gets its turn.
 */
template <class Site>
class Turn
{
public:
    Turn() : m_held(HasProxy<Site>() && LockProxy<Site>()) {}
    ~Turn()
    {
        if (m_held) {
            g_mutex_unlock(&zav_api_proxy_mutex);
        }
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

    explicit operator bool() const { return m_held; }

private:
    const bool m_held;
};

/** Calls the service during a turn; the reply belongs to the caller, NULL when none came. */
template <class Site>
GVariant* Call(const char* method, GVariant* parameters)
{
    g_autoptr(GVariant) reply =
        g_dbus_proxy_call_sync(Load(ZAVServiceAPI::proxy), method, parameters,
                               G_DBUS_CALL_FLAGS_NONE, kCallTimeout, nullptr, nullptr);
    LOG_POINT_FOR(Site, DLOG_INFO, "Returned from ZAVService...");
    if (reply == nullptr) {
        LOG_POINT_FOR(Site, DLOG_ERROR, "The integer packet received from ZAVService is NULL");
    }
    return g_steal_pointer(&reply);
}

template <class Site>
void LogReceived(int value)
{
    LOG_POINT_FOR(Site, DLOG_INFO, "IntDataReceived: %d from ZAVService", value);
}

/** A reply of one value. */
struct ReplyType
{
    const char* text;
    int (*get)(GVariant* value);
};

constexpr ReplyType kFlag = {"(b)", g_variant_get_boolean};
constexpr ReplyType kNumber = {"(i)", g_variant_get_int32};

bool IsOfType(GVariant* value, const char* type)
{
    return strcmp(g_variant_get_type_string(value), type) == 0;
}

/** The reply's value; 0 when it is of another type. */
int Unpack(GVariant* reply, const ReplyType& type)
{
    if (!IsOfType(reply, type.text)) {
        return 0;
    }
    g_autoptr(GVariant) value = g_variant_get_child_value(reply, 0);
    return type.get(value);
}

template <class Site>
int Receive(GVariant* reply, const ReplyType& type)
{
    const int value = Unpack(reply, type);
    LogReceived<Site>(value);
    return value;
}

/** The results of a scalar request that brought no answer. */
struct Failure
{
    int refused;
    int unanswered;
};

/** What became of a request. */
struct Outcome
{
    enum
    {
        refused,
        unanswered,
        answered
    } end;
    int value = 0;

    int Or(Failure failure) const
    {
        return end == answered ? value : end == refused ? failure.refused : failure.unanswered;
    }
};

/** The guarded call; `parameters` builds the tuple, or NULL, once the turn has come. */
template <class Site, class Parameters>
Outcome Exchange(const char* method, const Parameters& parameters, const ReplyType& type)
{
    const Turn<Site> turn;
    if (!turn) {
        return {Outcome::refused};
    }
    g_autoptr(GVariant) reply = Call<Site>(method, parameters());
    if (reply == nullptr) {
        return {Outcome::unanswered};
    }
    return {Outcome::answered, Receive<Site>(reply, type)};
}

constexpr auto kNoParameters = []() -> GVariant* { return nullptr; };

auto OneInteger(int value)
{
    return [value] { return g_variant_new("(i)", value); };
}

/** Hands a request to the bus during a turn; the reply is not waited for and never seen. */
template <class Site>
void Send(GVariant* parameters)
{
    g_dbus_proxy_call(Load(ZAVServiceAPI::proxy), Site::Name(), parameters, G_DBUS_CALL_FLAGS_NONE,
                      kCallTimeout, nullptr, nullptr, nullptr);
    LogReceived<Site>(0);
}

GVariant* Integers(const int* values, int count)
{
    return g_variant_new_fixed_array(G_VARIANT_TYPE_INT32, values, static_cast<gsize>(count),
                                     sizeof *values);
}

GVariant* Bytes(const unsigned char* data, int length)
{
    return g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, data, static_cast<gsize>(length), 1);
}

} // namespace

// --------------------------------------------------------------------------------- Scalar requests

namespace
{

constexpr Failure kMinusOne = {.refused = -1, .unanswered = -1};
constexpr Failure kFalse = {.refused = 0, .unanswered = 0};

template <class Site>
int Query(const ReplyType& type, Failure failure)
{
    Announce<Site>();
    return Exchange<Site>(Site::Name(), kNoParameters, type).Or(failure);
}

template <class Site, class T>
int Set(T announced, int sent)
{
    Announce<Site>(announced);
    return Exchange<Site>(Site::Name(), OneInteger(sent), kNumber).Or(kMinusOne);
}

template <class Site>
int Set(int value)
{
    return Set<Site>(value, value);
}

// The service numbers the modes from 0. Any number may come in: it wraps around rather than trap.
constexpr unsigned kModeOffset = 100;

int ToWire(AudioEffect mode)
{
    return static_cast<int>(static_cast<unsigned>(mode) - kModeOffset);
}

AudioEffect FromWire(int mode)
{
    return static_cast<AudioEffect>(static_cast<unsigned>(mode) + kModeOffset);
}

} // namespace

bool ZAVServiceAPI::IsSoundBarConnected()
{
    LOG_SITE(Here);
    return Query<Here>(kFlag, kFalse) != 0;
}

int ZAVServiceAPI::GetSpeakerSelection()
{
    LOG_SITE(Here);
    return Query<Here>(kNumber, {.refused = -1, .unanswered = 0});
}

int ZAVServiceAPI::SetSpeakerSelection(int selection)
{
    LOG_SITE(Here);
    return Set<Here>(selection);
}

int ZAVServiceAPI::GetWooferLevel()
{
    LOG_SITE(Here);
    return Query<Here>(kNumber, kMinusOne);
}

int ZAVServiceAPI::SetWooferLevel(int level)
{
    LOG_SITE(Here);
    return Set<Here>(level);
}

woofer_state_e ZAVServiceAPI::GetWooferState()
{
    LOG_SITE(Here);
    constexpr Failure none = {.refused = WOOFER_STATE_NONE, .unanswered = WOOFER_STATE_NONE};
    return static_cast<woofer_state_e>(Query<Here>(kNumber, none));
}

int ZAVServiceAPI::IsZAVReady()
{
    LOG_SITE(Here);
    return Query<Here>(kNumber, kMinusOne);
}

int ZAVServiceAPI::SetEarcToZav(int value)
{
    LOG_SITE(Here);
    return Set<Here>(value);
}

int ZAVServiceAPI::SetCorvalaVconf(int value)
{
    LOG_SITE(Here);
    return Set<Here>(value);
}

int ZAVServiceAPI::RequestPreTrial(int value)
{
    LOG_SITE(Here);
    return Set<Here>(value);
}

bool ZAVServiceAPI::IsAvailableEqualizer()
{
    LOG_SITE(Here);
    return Query<Here>(kFlag, kFalse) != 0;
}

int ZAVServiceAPI::getQCorvalaAvailable()
{
    LOG_SITE(Here);
    return Query<Here>(kNumber, kMinusOne);
}

feature_support_e ZAVServiceAPI::IsFeatureSupported()
{
    LOG_SITE(Here);
    constexpr Failure unknown = {.refused = FEATURE_SUPPORT_UNKNOWN,
                                 .unanswered = FEATURE_SUPPORT_UNKNOWN};
    return static_cast<feature_support_e>(Query<Here>(kNumber, unknown));
}

int ZAVServiceAPI::SetMode(AudioEffect mode)
{
    LOG_SITE(Here);
    return Set<Here>(mode, ToWire(mode));
}

AudioEffect ZAVServiceAPI::GetMode()
{
    LOG_SITE(Here);
    const int none = ToWire(AUDIO_EFFECT_NONE);
    return FromWire(Query<Here>(kNumber, {.refused = none, .unanswered = none}));
}

bool ZAVServiceAPI::IsAvailableWooferMode()
{
    LOG_SITE(Here);
    return Query<Here>(kFlag, kFalse) != 0;
}

bool ZAVServiceAPI::GetEqualizerState()
{
    return GetMode() == AUDIO_EFFECT_STANDARD;
}

// --------------------------------------------------------------------------------------- Equalizer

/**
 * GetEqualizerLevel() for a caller with room for `capacity` levels: those beyond it are left out.
 * Not exported: the C function, which has room for 100, is its one user outside of this file.
 */
void ReadEqualizerLevel(int* levels, int* count, size_t capacity);

void ZAVServiceAPI::SetEqualizerLevel(int* levels, int count)
{
    LOG_SITE(Here);
    Announce<Here>(count);
    if (levels == nullptr || count <= 0) {
        LOG_POINT(DLOG_ERROR, "Wrong memory pointer %p  %d", static_cast<const void*>(levels),
                  count);
        return;
    }
    const Turn<Here> turn;
    if (turn) {
        Send<Here>(g_variant_new("(@aii)", Integers(levels, count), count));
    }
}

void ZAVServiceAPI::GetEqualizerLevel(int* levels, int* count)
{
    ReadEqualizerLevel(levels, count, SIZE_MAX);
}

void ReadEqualizerLevel(int* levels, int* count, size_t capacity)
{
    // To the reader of the log it is the method.
    LOG_SITE_AS(Here, "GetEqualizerLevel",
                "static void ZAVServiceAPI::GetEqualizerLevel(int*, int*)");
    Announce<Here>();
    if (levels == nullptr || count == nullptr) {
        LOG_POINT_FOR(Here, DLOG_ERROR, "Wrong parameter  %p  %p", static_cast<const void*>(levels),
                      static_cast<const void*>(count));
        return;
    }
    const Turn<Here> turn;
    if (!turn) {
        return;
    }
    g_autoptr(GVariant) reply = Call<Here>(Here::Name(), nullptr);
    if (reply == nullptr || !IsOfType(reply, "(aii)")) {
        return;
    }
    g_autoptr(GVariant) array = g_variant_get_child_value(reply, 0);
    gsize received = 0;
    const auto* values =
        static_cast<const int*>(g_variant_get_fixed_array(array, &received, sizeof(int)));
    if (values == nullptr) {
        return;
    }
    for (unsigned i = 0; i < received; ++i) {
        LOG_POINT_FOR(Here, DLOG_INFO,
                      "From: [ZAVService] To: [ZAVService-api] Byteno.: %d Recieved EqualizerLevel "
                      ": %d",
                      i + 1, values[i]);
    }
    const gsize kept = std::min<gsize>(received, capacity);
    std::copy_n(values, kept, levels);
    *count = static_cast<int>(kept);
}

// ------------------------------------------------------------------------------------- Sound modes

namespace
{

/** The modes by their bit in the service's mode mask. */
const std::map<int, AudioEffect> maskSoundModeMap = {
    {0x1, AUDIO_EFFECT_STANDARD},
    {0x2, AUDIO_EFFECT_SURROUND},
    {0x4, AUDIO_EFFECT_NIGHT},
    {0x8, AUDIO_EFFECT_CLEAR_VOICE},
    {0x10, AUDIO_EFFECT_SPORTS},
    {0x20, AUDIO_EFFECT_MOVIE},
    {0x40, AUDIO_EFFECT_MUSIC},
    {0x80, AUDIO_EFFECT_SMART},
    {0x100, AUDIO_EFFECT_GAME},
    {0x200, AUDIO_EFFECT_ADAPTIVE},
    {0x400, AUDIO_EFFECT_DTS_VIRTUAL_X},
    {0x800, AUDIO_EFFECT_BASS_BOOST},
    {0x1000, AUDIO_EFFECT_ADAPTIVE_SOUND_PLUS},
    {0x2000, AUDIO_EFFECT_UNLABELLED_1},
    {0x4000, AUDIO_EFFECT_UNLABELLED_2},
    {0x8000, AUDIO_EFFECT_SOUNDBAR_1},
    {0x10000, AUDIO_EFFECT_SOUNDBAR_2},
};

/** The display string identifier of a mode; NULL for one that has none. */
const char* DisplayString(AudioEffect mode)
{
    switch (mode) {
    case AUDIO_EFFECT_STANDARD:
        return "SID_STANDARD_KR_SOUND";
    case AUDIO_EFFECT_MUSIC:
        return "SID_MUSIC";
    case AUDIO_EFFECT_CLEAR_VOICE:
        return "SID_CLEAR_VOICE";
    case AUDIO_EFFECT_SPORTS:
        return "COM_SID_SPORTS";
    case AUDIO_EFFECT_MOVIE:
        return "SID_MOVIE_KR_SOUND";
    case AUDIO_EFFECT_NIGHT:
        return "SID_NIGHT";
    case AUDIO_EFFECT_SURROUND:
        return "TV_SID_SURROUND_MODE";
    case AUDIO_EFFECT_SMART:
        return "TV_SID_SPEAKER_SOUND_OPTION_SMART";
    case AUDIO_EFFECT_GAME:
        return "COM_SID_GAME";
    case AUDIO_EFFECT_ADAPTIVE:
        return "COM_SID_ADAPTIVE";
    case AUDIO_EFFECT_DTS_VIRTUAL_X:
        return "COM_SID_DTS_VIRTUAL_X";
    case AUDIO_EFFECT_BASS_BOOST:
        return "TV_SID_SOUNDMODE_CAOCT_BASS_BOOST";
    case AUDIO_EFFECT_ADAPTIVE_SOUND_PLUS:
        return "TV_SID_SETTINGS_ADAPTIVE_SOUND_PLUS";
    case AUDIO_EFFECT_SOUNDBAR_1:
    case AUDIO_EFFECT_SOUNDBAR_2:
        return "SOUNDBAR MODE (TBD)";
    default:
        return nullptr;
    }
}

} // namespace

void ZAVServiceAPI::GetModeList(std::list<AudioEffect>* modes)
{
    LOG_SITE(Here);
    Announce<Here>();
    const Turn<Here> turn;
    if (!turn) {
        return;
    }
    g_autoptr(GVariant) reply = Call<Here>(Here::Name(), nullptr);
    if (reply == nullptr) {
        return;
    }
    createSoundEffectList(modes, Receive<Here>(reply, kNumber));
    for (const AudioEffect mode : *modes) {
        LOG_POINT(DLOG_INFO, "GetModeList MODE: %d", mode);
    }
}

void ZAVServiceAPI::GetModeListwithSID(std::list<AudioEffect>* modes, std::list<std::string>* sids)
{
    LOG_POINT(DLOG_INFO, "GetModeListwithSID");
    GetModeList(modes);
    if (modes == nullptr || modes->empty()) {
        return;
    }
    popSIDList(sids, modes);
    auto sid = sids->cbegin();
    for (auto mode = modes->cbegin(); mode != modes->cend() && sid != sids->cend(); ++mode, ++sid) {
        LOG_POINT(DLOG_INFO, "#GetModeList and MODE ID : %d SID = %s", *mode, sid->c_str());
    }
}

void ZAVServiceAPI::createSoundEffectList(std::list<AudioEffect>* modes, int mask)
{
    bool smart = false;
    for (const auto& [bit, mode] : maskSoundModeMap) {
        if ((mask & bit) == 0) {
            continue;
        }
        if (mode == AUDIO_EFFECT_SOUNDBAR_1 || mode == AUDIO_EFFECT_SOUNDBAR_2) {
            LOG_POINT(DLOG_INFO, "Unknown Sound Mode Found %d", mode);
            continue;
        }
        modes->push_back(mode);
        smart = smart || mode == AUDIO_EFFECT_SMART;
    }
    modes->sort();
    if (smart) {
        const auto found = std::find(modes->begin(), modes->end(), AUDIO_EFFECT_SMART);
        if (found != modes->begin()) {
            modes->splice(std::next(modes->begin()), *modes, found);
        }
    }
}

void ZAVServiceAPI::popSIDList(std::list<std::string>* sids, std::list<AudioEffect>* modes)
{
    for (const AudioEffect mode : *modes) {
        if (const char* sid = DisplayString(mode)) {
            sids->emplace_back(sid);
        }
    }
}

void ZAVServiceAPI::popSoundEffectList(std::list<AudioEffect>* modes, ListSoundEffect selection)
{
    switch (selection) {
    case LIST_SOUND_EFFECT_ALL:
        modes->push_back(AUDIO_EFFECT_MUSIC);
        [[fallthrough]];
    case LIST_SOUND_EFFECT_MOVIE:
        modes->push_back(AUDIO_EFFECT_MOVIE);
        [[fallthrough]];
    case LIST_SOUND_EFFECT_SPORTS:
        modes->push_back(AUDIO_EFFECT_SPORTS);
        [[fallthrough]];
    case LIST_SOUND_EFFECT_VOICE:
        modes->push_back(AUDIO_EFFECT_CLEAR_VOICE);
        [[fallthrough]];
    case LIST_SOUND_EFFECT_BASIC:
        modes->insert(modes->end(),
                      {AUDIO_EFFECT_STANDARD, AUDIO_EFFECT_NIGHT, AUDIO_EFFECT_SURROUND});
        break;
    case LIST_SOUND_EFFECT_NIGHT:
        modes->insert(modes->end(), {AUDIO_EFFECT_STANDARD, AUDIO_EFFECT_NIGHT});
        break;
    case LIST_SOUND_EFFECT_SURROUND:
        modes->insert(modes->end(), {AUDIO_EFFECT_STANDARD, AUDIO_EFFECT_SURROUND});
        break;
    case LIST_SOUND_EFFECT_STANDARD:
        modes->push_back(AUDIO_EFFECT_STANDARD);
        break;
    }
    modes->sort();
}

// --------------------------------------------------------------------------------- Speaker manager

/**
 * The value of a bool that another language wrote: any byte but 0 is true. Not exported; the C
 * functions use it too.
 */
bool IsTrue(const bool& foreign);

bool IsTrue(const bool& foreign)
{
    return reinterpret_cast<const unsigned char&>(foreign) != 0;
}

int ZAVServiceAPI::InitSpeakerManager(SpeakerManagerState* state)
{
    LOG_SITE(Here);
    Announce<Here>();
    if (state == nullptr) {
        // A warning only: callers must not pass NULL.
        LOG_POINT(DLOG_ERROR, "Wrong parameter  %p", static_cast<const void*>(state));
    }
    const Turn<Here> turn;
    if (!turn) {
        return -1;
    }
    // NOLINTNEXTLINE(clang-analyzer-core.NullDereference): see above
    Send<Here>(g_variant_new("(ii@aiibbiiii)", state->AudioEffect, state->SubWooferLevel,
                             Integers(state->ValueArray, 7), state->ConnectionStatus,
                             IsTrue(state->SubWooferAvailable), IsTrue(state->EqualizerAvailable),
                             state->State, state->FeatureSupported, state->WooferConnected,
                             state->EffectList));
    return 0;
}

// ---------------------------------------------------------------------------------------- Speakers

namespace
{

/** Reads the records of a "GetSCL" reply; returns their number, -1 when it carries none. */
template <class Site>
int ReadSpeakers(GVariant* reply, std::vector<SCLSpkInfo>& list)
{
    if (g_variant_n_children(reply) == 0) {
        LOG_POINT_FOR(Site, DLOG_ERROR, "pTuple is NULL");
        return -1;
    }
    g_autoptr(GVariant) array = g_variant_get_child_value(reply, 0);
    gsize length = 0;
    const void* bytes = nullptr;
    if (IsOfType(array, "ay")) {
        bytes = g_variant_get_fixed_array(array, &length, 1);
    }
    if (bytes == nullptr) {
        LOG_POINT_FOR(Site, DLOG_ERROR, "pByteArray is NULL");
        return -1;
    }
    LOG_POINT_FOR(Site, DLOG_INFO, "elenum[%zu], sizeof(CNetSpkNodeInfo)[%zu]", length,
                  sizeof(CNetSpkNodeInfo));
    const size_t count = length / sizeof(SCLSpkInfo);
    if (count > ZAV_MAX_SPEAKERS) {
        std::abort();
    }
    const auto* records = static_cast<const SCLSpkInfo*>(bytes);
    list.assign(records, records + count);
    int number = 0;
    for (const SCLSpkInfo& speaker : list) {
        const int type = speaker.m_Connecttype;
        LOG_POINT_FOR(Site, DLOG_INFO, "spk[%d]: m_Connecttype: %d", ++number, type);
    }
    return number;
}

} // namespace

int ZAVServiceAPI::GetSCL(std::vector<SCLSpkInfo>& list)
{
    LOG_SITE(Here);
    Announce<Here>();
    const Turn<Here> turn;
    if (!turn) {
        return 0;
    }
    list.clear();
    g_autoptr(GVariant) reply = Call<Here>(Here::Name(), nullptr);
    if (reply == nullptr) {
        return 0;
    }
    const int size = ReadSpeakers<Here>(reply, list);
    LOG_POINT(DLOG_INFO, "Speaker Size[%d]", size);
    return size;
}

int ZAVServiceAPI::getSCL(SCLSpkInfo* out)
{
    std::vector<SCLSpkInfo> list;
    const int size = GetSCL(list);
    std::copy(list.begin(), list.end(), out);
    return size;
}

// ------------------------------------------------------------------------ Common tunnel and S/PDIF

namespace
{

/** Whether there are bytes to send. */
template <class Site>
bool HasData(const unsigned char* data, int length)
{
    if (data != nullptr && length > 0) {
        return true;
    }
    LOG_POINT_FOR(Site, DLOG_ERROR, "Wrong parameter  %p  %d", static_cast<const void*>(data),
                  length);
    return false;
}

} // namespace

int ZAVServiceAPI::SetCapabilityCommonTunnelExternal(commonTunnel_external_id_e id)
{
    LOG_SITE(Here);
    Announce<Here>(id);
    const Outcome outcome = Exchange<Here>("setCapabilityViaCommonTunnel", OneInteger(id), kFlag);
    return outcome.end == Outcome::answered ? 0 : -1;
}

int ZAVServiceAPI::GetCapabilityCommonTunnelExternal(commonTunnel_external_id_e id, int* capability)
{
    LOG_SITE(Here);
    Announce<Here>(id);
    if (capability == nullptr) {
        LOG_POINT(DLOG_ERROR, "Wrong parameter  %p", static_cast<const void*>(capability));
        return -1;
    }
    const Outcome outcome = Exchange<Here>("getCapabilityViaCommonTunnel", OneInteger(id), kNumber);
    if (outcome.end != Outcome::answered) {
        return -1;
    }
    *capability = outcome.value;
    return 0;
}

bool ZAVServiceAPI::SendDataToCommonTunnelExternal(const unsigned char* data, int length)
{
    LOG_SITE(Here);
    Announce<Here>(length);
    if (!HasData<Here>(data, length)) {
        return false;
    }
    const auto parameters = [data, length] {
        return g_variant_new("(@ayii)", Bytes(data, length), length,
                             Load(ReceiveExternalDataViaCommonTunnel_id));
    };
    // A missing reply counts as sent.
    return Exchange<Here>("sendExternalDataViaCommonTunnel", parameters, kFlag).end !=
           Outcome::refused;
}

bool ZAVServiceAPI::RequestStatusFromCommonTunnelExternal()
{
    const unsigned char statusRequest = 's';
    SendDataToCommonTunnelExternal(&statusRequest, 1);
    return true;
}

void ZAVServiceAPI::DataReceivedFromSpkViaSPDIF(const unsigned char* data, int length)
{
    LOG_SITE(Here);
    Announce<Here>(length);
    if (!HasData<Here>(data, length)) {
        return;
    }
    const int sent = std::min(length, ZAV_MAX_SPDIF_DATA);
    Exchange<Here>(
        "ReceivedDataFromSpdif",
        [data, sent] { return g_variant_new("(@ayi)", Bytes(data, sent), sent); }, kFlag);
}

// ------------------------------------------------------------------------------------------ Models

namespace
{

/**
 * The codes of the device models: sound bars 0 to 4 and 16 to 25, wireless speakers 5 to 13, and
 * the two generic names. The product names are placeholders, to be replaced with a device's own;
 * callers compare against the codes, which therefore stand with each name.
 */
const std::map<std::string_view, model_name> hashMapModelToCode = {
    {"SOUNDBAR_A1", model_name{0}},
    {"SOUNDBAR_A2", model_name{1}},
    {"SOUNDBAR_A3", model_name{2}},
    {"SOUNDBAR_A4", model_name{3}},
    {"SOUNDBAR_A5", model_name{4}},
    {"SPEAKER_W1", model_name{5}},
    {"SPEAKER_W2", model_name{6}},
    {"SPEAKER_W3", model_name{7}},
    {"SPEAKER_W4", model_name{8}},
    {"SPEAKER_W5", model_name{9}},
    {"SPEAKER_W6", model_name{11}},
    {"SPEAKER_W7", model_name{10}},
    {"SPEAKER_W8", model_name{12}},
    {"SPEAKER_W9", model_name{13}},
    {"MODEL_DEFAULT", MODEL_NAME_MODEL_DEFAULT},
    {"SOUNDBAR_DEFAULT", MODEL_NAME_SOUNDBAR_DEFAULT},
    {"SOUNDBAR_B1", model_name{16}},
    {"SOUNDBAR_B2", model_name{17}},
    {"SOUNDBAR_B3", model_name{18}},
    {"SOUNDBAR_B4", model_name{19}},
    {"SOUNDBAR_B5", model_name{20}},
    {"SOUNDBAR_B6", model_name{21}},
    {"SOUNDBAR_B7", model_name{22}},
    {"SOUNDBAR_B8", model_name{23}},
    {"SOUNDBAR_B9", model_name{24}},
    {"SOUNDBAR_B10", model_name{25}},
};

} // namespace

model_name ZAVServiceAPI::m_HashModelName(const char* name)
{
    const auto found = hashMapModelToCode.find(std::string(name)); // throws on NULL
    return found == hashMapModelToCode.end() ? MODEL_NAME_UNKNOWN : found->second;
}

// ----------------------------------------------------------------------------------- Registrations

ZAVCallBack ZAVServiceAPI::CallBackFunc = nullptr;
ZAVCallBack ZAVServiceAPI::DisconnectCallBackFunc = nullptr;
ZAVCallBack1 ZAVServiceAPI::SendDataToSpkViaSPDIF_cb = nullptr;
void* ZAVServiceAPI::SendDataToSpkViaSPDIF_user_data = nullptr;
extspk_sound_mode_changed_cb ZAVServiceAPI::Sound_mode_changed_cb = nullptr;
void* ZAVServiceAPI::Sound_mode_changed_user_data = nullptr;
commonTunnel_external_id_e ZAVServiceAPI::ReceiveExternalDataViaCommonTunnel_id =
    COMMON_TUNNEL_EXTERNAL_ID_DEFAULT;
ZavConnectedCallBack ZAVServiceAPI::ReceiveExternalDataViaCommonTunnel_connected_cb = nullptr;
ZavDataReceivedCallBack ZAVServiceAPI::ReceiveExternalDataViaCommonTunnel_data_cb = nullptr;
void* ZAVServiceAPI::ReceiveExternalDataViaCommonTunnel_user_data = nullptr;
ZAVCsharpCallback ZAVServiceAPI::CSharpCallbackFunction = nullptr;

namespace
{

/**
 * The words of a registration: a reader gets those that one thread wrote together, and a
 * replacement never shows an empty slot. The generation is odd while a thread writes.
 */
template <class... Words>
class Registration
{
public:
    constexpr explicit Registration(Words&... words) : m_words(words...) {}

    void Set(std::type_identity_t<Words>... values)
    {
        unsigned even = m_generation.load(std::memory_order_relaxed) & ~1U;
        while (!m_generation.compare_exchange_weak(even, even + 1, std::memory_order_acq_rel)) {
            std::this_thread::yield(); // until the other writer has finished
            even &= ~1U;
        }
        std::apply([&](Words&... words) { (Store(words, values), ...); }, m_words);
        m_generation.store(even + 2, std::memory_order_release);
    }

    std::tuple<Words...> Get() const
    {
        for (;;) {
            const unsigned before = m_generation.load(std::memory_order_acquire);
            const auto read = std::apply(
                [](Words&... words) { return std::tuple<Words...>(Load(words)...); }, m_words);
            if ((before & 1U) == 0 && m_generation.load(std::memory_order_relaxed) == before) {
                return read;
            }
            std::this_thread::yield();
        }
    }

private:
    std::tuple<Words&...> m_words;
    std::atomic<unsigned> m_generation = 0;
};

constinit Registration spdifRegistration(ZAVServiceAPI::SendDataToSpkViaSPDIF_cb,
                                         ZAVServiceAPI::SendDataToSpkViaSPDIF_user_data);
constinit Registration soundModeRegistration(ZAVServiceAPI::Sound_mode_changed_cb,
                                             ZAVServiceAPI::Sound_mode_changed_user_data);
constinit Registration
    tunnelRegistration(ZAVServiceAPI::ReceiveExternalDataViaCommonTunnel_id,
                       ZAVServiceAPI::ReceiveExternalDataViaCommonTunnel_connected_cb,
                       ZAVServiceAPI::ReceiveExternalDataViaCommonTunnel_data_cb,
                       ZAVServiceAPI::ReceiveExternalDataViaCommonTunnel_user_data);

template <class Site>
bool HasConnection()
{
    if (Load(ZAVServiceAPI::connection) != nullptr) {
        return true;
    }
    LOG_POINT_FOR(Site, DLOG_INFO, "connection is NULL");
    return false;
}

} // namespace

void ZAVServiceAPI::SignalSubscribe(ZAVCallBack callback)
{
    LOG_SITE(Here);
    LOG_POINT(DLOG_INFO, "SignalSubscribe  called !!!!");
    if (HasConnection<Here>()) {
        Store(CallBackFunc, callback);
    }
}

void ZAVServiceAPI::DisconnectSignalSubscribe(ZAVCallBack callback)
{
    LOG_SITE(Here);
    LOG_POINT(DLOG_INFO, "DisconnectSignalSubscribe  called !!!!");
    if (HasConnection<Here>()) {
        Store(DisconnectCallBackFunc, callback);
    }
}

bool ZAVServiceAPI::SetSendDataToSpkViaSPDIFcb(ZAVCallBack1 callback, void* user_data)
{
    LOG_POINT(DLOG_INFO, "called !!!!");
    if (callback == nullptr) {
        LOG_POINT(DLOG_INFO, "lcallback is NULL");
        return false;
    }
    spdifRegistration.Set(callback, user_data);
    return true;
}

bool ZAVServiceAPI::UnSetSendDataToSpkViaSPDIFcb()
{
    LOG_POINT(DLOG_INFO, " called !!!!");
    spdifRegistration.Set(nullptr, nullptr);
    return true;
}

void ZAVServiceAPI::ExtSpkSetSoundModeChangedCb(extspk_sound_mode_changed_cb callback,
                                                void* user_data)
{
    LOG_POINT(DLOG_INFO, "ExtSpkSetSoundModeChangedCb Setting");
    if (callback == nullptr) {
        LOG_POINT(DLOG_INFO, "lcallback is NULL");
        return;
    }
    soundModeRegistration.Set(callback, user_data);
}

bool ZAVServiceAPI::SetDataReceivedFromCommonTunnelExternalcb(commonTunnel_external_id_e id,
                                                              ZavConnectedCallBack connected,
                                                              ZavDataReceivedCallBack data,
                                                              void* user_data)
{
    LOG_POINT(DLOG_INFO, "called !!!!");
    if (user_data == nullptr) {
        LOG_POINT(DLOG_INFO, "user_data is NULL");
        return false;
    }
    tunnelRegistration.Set(id, connected, data, user_data);
    return true;
}

void ZAVServiceAPI::ALLSignalUnSubscribe()
{
    LOG_POINT(DLOG_INFO, "ALLSignalUnSubscribe  called !!!!");
    // Each callback by itself: its user data stay, so no reader can get a mixture.
    Store(CallBackFunc, nullptr);
    Store(DisconnectCallBackFunc, nullptr);
    Store(SendDataToSpkViaSPDIF_cb, nullptr);
    Store(ReceiveExternalDataViaCommonTunnel_connected_cb, nullptr);
    Store(ReceiveExternalDataViaCommonTunnel_data_cb, nullptr);
}

bool ZAVServiceAPI::SubscribeZAVCSharpCallback(ZAVCsharpCallback callback)
{
    LOG_SITE(Here);
    Announce<Here>();
    const Turn<Here> turn;
    if (!turn) {
        return false;
    }
    Store(CSharpCallbackFunction, callback);
    return true;
}

void ZAVServiceAPI::UnsubscribeZAVCSharpCallback()
{
    Store(CSharpCallbackFunction, nullptr);
}

// ----------------------------------------------------------------------------------------- Signals

namespace
{

/** A status of the common tunnel: 'q', connected or not, text. */
constexpr gsize kTunnelStatus = 2 + ZAV_TUNNEL_STATUS_TEXT;

/** Whether a signal brought what its handler unpacks. */
template <class Site>
bool HasParameters(GVariant* parameters, const char* type)
{
    if (parameters != nullptr && IsOfType(parameters, type)) {
        return true;
    }
    LOG_POINT_FOR(Site, DLOG_ERROR, "Error: Parameter part is NULL");
    return false;
}

/** The byte array of a signal, valid as long as the signal's parameters. */
struct SignalBytes
{
    const unsigned char* data;
    gsize count = 0;

    SignalBytes(GVariant* parameters, gsize index)
    {
        g_autoptr(GVariant) array = g_variant_get_child_value(parameters, index);
        data = static_cast<const unsigned char*>(g_variant_get_fixed_array(array, &count, 1));
    }
};

template <class Site>
void LogNoBytes()
{
    LOG_POINT_FOR(Site, DLOG_ERROR, "Error: pRecievedData is NULL");
}

/** A copy filled up with 0. Bytes that do not fit end the process, in every build. */
std::array<unsigned char, ZAV_SPDIF_BUFFER> Copied(const SignalBytes& bytes)
{
    std::array<unsigned char, ZAV_SPDIF_BUFFER> copy{};
    if (bytes.count > copy.size()) {
        std::abort();
    }
    std::copy_n(bytes.data, bytes.count, copy.begin());
    return copy;
}

} // namespace

void ZAVServiceAPI::m_OnSignalCallBack(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                                       const gchar*, GVariant*, gpointer) noexcept
{
    if (const auto callback = Load(CallBackFunc)) {
        callback();
    }
}

void ZAVServiceAPI::m_OnDisconnectSignalCallBack(GDBusConnection*, const gchar*, const gchar*,
                                                 const gchar*, const gchar*, GVariant*,
                                                 gpointer) noexcept
{
    if (const auto callback = Load(DisconnectCallBackFunc)) {
        callback();
    }
}

void ZAVServiceAPI::m_OnSendDataViaSpdifSignalCallBack(GDBusConnection*, const gchar*, const gchar*,
                                                       const gchar*, const gchar*,
                                                       GVariant* parameters, gpointer) noexcept
{
    LOG_SITE(Here);
    if (!HasParameters<Here>(parameters, "(ayi)")) {
        return;
    }
    const SignalBytes bytes(parameters, 0);
    if (bytes.data == nullptr && bytes.count != 0) { // an empty array is delivered
        LogNoBytes<Here>();
        return;
    }
    const auto copy = Copied(bytes);
    const auto [callback, userData] = spdifRegistration.Get();
    if (callback == nullptr) {
        return;
    }
    for (gsize i = 0; i < bytes.count; ++i) {
        LOG_POINT(DLOG_ERROR, "data[%d]: %02x", static_cast<int>(i) + 1, copy[i]);
    }
    callback(copy.data(), userData);
}

void ZAVServiceAPI::m_OnReceiveExternalDataViaCommonTunnelCallBack(GDBusConnection*, const gchar*,
                                                                   const gchar*, const gchar*,
                                                                   const gchar*,
                                                                   GVariant* parameters,
                                                                   gpointer) noexcept
{
    LOG_SITE(Here);
    if (!HasParameters<Here>(parameters, "(ayii)")) {
        return;
    }
    const SignalBytes bytes(parameters, 0);
    if (bytes.data == nullptr) {
        LogNoBytes<Here>();
        return;
    }
    int sender = 0;
    g_variant_get_child(parameters, 2, "i", &sender);
    const auto [id, connected, data, userData] = tunnelRegistration.Get();
    if (sender != id && sender != COMMON_TUNNEL_EXTERNAL_ID_DEFAULT) {
        return;
    }
    auto copy = Copied(bytes);
    if (bytes.count == kTunnelStatus && copy[0] == 'q' && connected != nullptr) {
        connected(copy[1] != 0 ? 1 : 0,
                  reinterpret_cast<char*>(const_cast<unsigned char*>(bytes.data + 2)), userData);
        return;
    }
    if (bytes.count > ZAV_MAX_TUNNEL_DATA || sender != id) {
        return;
    }
    if (data != nullptr) {
        data(copy.data(), static_cast<int>(bytes.count), userData);
    }
}

void ZAVServiceAPI::m_OnSoundModeChangeEvent(GDBusConnection*, const gchar*, const gchar*,
                                             const gchar*, const gchar*, GVariant* parameters,
                                             gpointer) noexcept
{
    LOG_SITE(Here);
    if (!HasParameters<Here>(parameters, "(i)")) {
        return;
    }
    int mode = 0;
    g_variant_get(parameters, "(i)", &mode);
    LogReceived<Here>(mode);
    const auto [callback, userData] = soundModeRegistration.Get();
    if (callback != nullptr) {
        callback(mode, userData);
    }
}

void ZAVServiceAPI::NotifyZAVCsharpCallback(GDBusConnection*, const gchar*, const gchar*,
                                            const gchar*, const gchar*, GVariant* parameters,
                                            gpointer) noexcept
{
    LOG_SITE(Here);
    LOG_POINT(DLOG_INFO, "Enter");
    if (!HasParameters<Here>(parameters, "(iayi)")) {
        return;
    }
    int event = 0;
    g_variant_get_child(parameters, 0, "i", &event);
    const SignalBytes bytes(parameters, 1);
    // The managed side reads the address of the received bytes out of the buffer. The room is
    // counted as one 32-bit word for each of them.
    std::array<unsigned char, ZAV_EVENT_BUFFER> buffer{};
    const gsize count = std::min<gsize>(bytes.count, buffer.size());
    if (count * sizeof(uint32_t) > buffer.size()) {
        std::abort();
    }
    if (count > 0) {
        memcpy(buffer.data(), &bytes.data, sizeof bytes.data);
    }
    if (const auto callback = Load(CSharpCallbackFunction)) {
        LOG_POINT(DLOG_INFO, "Sending event to Csharp api: %d", event);
        callback(event, buffer.data(), static_cast<int>(count));
    } else {
        LOG_POINT(DLOG_ERROR, "CSharpCallbackFunction is NULL");
    }
    LOG_POINT(DLOG_INFO, "Exit");
}