// zav: records, plays, encodes, decodes, copies and describes audio files. Each verb builds one
// small graph of the library's nodes; see EncodeCommand.cpp for the plainest one.

#include <CLI/CLI.hpp>
#include <ZAVAudioStreaming/core/Diagnostics.hpp>
#include <ZAVAudioStreaming/core/Version.hpp>
#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <system_error>
#include <vector>

#include "CopyCommand.hpp"
#include "DecodeCommand.hpp"
#include "DevicesCommand.hpp"
#include "EncodeCommand.hpp"
#include "Failure.hpp"
#include "FileType.hpp"
#include "FormatText.hpp"
#include "InfoCommand.hpp"
#include "PlayCommand.hpp"
#include "RecordCommand.hpp"
#include "RecordingPlan.hpp"
#include "StatusLine.hpp"
#include "Stream.hpp"
#include "UsageProblem.hpp"

namespace {

using namespace zavtool;

constexpr int kExitUsage = 2;

struct CommandLine {
    CommonOptions common;
    EncodeOptions encode;
    FilePair decode;
    FilePair copy;
    InfoOptions info;
    RecordOptions record;
    PlayOptions play;
    bool isDevicesJson = false;
    std::string helpVerb;
};

// Help fits into 80 columns. CLI11 does not break lines. So the texts contain line breaks, or
// `wrapped` adds line breaks.
void addCommonOptions(CLI::App& app, CommonOptions& common) {
    app.add_flag("-q,--quiet", common.isQuiet, "Show no progress on a terminal");
    app.add_flag("-v,--verbose", common.isVerbose,
                 "Show the graph, and the library's diagnostics\n"
                 "lines, on standard error");
}

void addFile(CLI::App& verb, const std::string& name, std::filesystem::path& path,
             const std::string& help) {
    verb.add_option(name, path, help)->required()->type_name("");
}

/// Adds an option that accepts one of a few values. The description lists the values.
template <class Value, class Values>
void addChoice(CLI::App& verb, const std::string& name, Value& value, Values values,
               const std::string& help) {
    verb.add_option(name, value, help)
        ->check(CLI::IsMember(values).description(""))
        ->type_name("WHICH");
}

/// Replaces CLI::Range, because its message prints the bounds with six decimals.
CLI::Validator inRange(double least, double most) {
    return {[least, most](const std::string& text) {
                char* end = nullptr;
                const double number = std::strtod(text.c_str(), &end);
                const bool isNumber = end != text.c_str() && *end == '\0';
                if (isNumber && number >= least && number <= most) {
                    return std::string();
                }
                std::ostringstream message;
                message << text << " is not a number from " << least << " to " << most;
                return message.str();
            },
            ""};
}

CLI::Validator wholeInRange(int least, int most) {
    return {[least, most](const std::string& text) {
                int number = 0;
                const char* const end = text.data() + text.size();
                const auto [parsedEnd, error] = std::from_chars(text.data(), end, number);
                return error == std::errc() && parsedEnd == end && number >= least && number <= most
                           ? std::string()
                           : text + " is not a whole number from " + std::to_string(least) +
                                 " to " + std::to_string(most);
            },
            ""};
}

void addSbcOptions(CLI::App& verb, SbcOptions& options) {
    verb.add_option("--bitpool", options.bitpool,
                    "Bits for each block; 32 if not given. More bits sound\n"
                    "better and take more room. From 2 to 16 times the\n"
                    "subbands for mono and dual; to 32 times, 250 at most,\n"
                    "for stereo and joint")
        ->check(wholeInRange(2, 250))
        ->type_name("N");
    addChoice(verb, "--mode", options.mode, std::vector{"mono", "dual", "stereo", "joint"},
              "mono, dual, stereo or joint; if not given, mono for\n"
              "one channel and stereo for two");
    addChoice(verb, "--subbands", options.subbands, std::vector{4, 8},
              "Frequency bands, 4 or 8; 8 if not given");
    addChoice(verb, "--blocks", options.blocks, std::vector{4, 8, 12, 16},
              "Blocks in an SBC frame: 4, 8, 12 or 16; 16 if not\n"
              "given");
    addChoice(verb, "--allocation", options.allocation, std::vector{"loudness", "snr"},
              "How the bits are divided among the subbands: by\n"
              "loudness or snr (signal to noise); loudness if not\n"
              "given");
}

CLI::App* addEncode(CLI::App& app, CommandLine& line) {
    auto* const verb = app.add_subcommand("encode", "Encode a PCM file to SBC or Opus");
    EncodeOptions& options = line.encode;
    addChoice(*verb, "--codec", options.codec, std::vector{"sbc", "opus"},
              "sbc or opus; if not given, the output's extension\n"
              "decides. The other options are for SBC only");
    addSbcOptions(*verb, options.sbc);
    addFile(*verb, "INPUT", options.files.input,
            wrapped("16-bit PCM in " + namesOfTypes(holdsPcm) +
                    "; mono or stereo. For SBC 16000, 32000, 44100 or 48000 Hz, for Opus 8000, "
                    "12000, 16000, 24000 or 48000 Hz"));
    addFile(*verb, "OUTPUT", options.files.output,
            wrapped("For SBC a name with " + extensionsOfTypes(holdsSbc) + ", for Opus with " +
                    extensionsOfTypes(holdsOpus) +
                    ". .sbc holds SBC frames and nothing else; .zsbc and .zopus are the library's "
                    "own containers (.zopus not for 12000 and 24000 Hz)"));
    verb->footer(
        "Samples at the end that do not fill an SBC frame or an Opus packet of 60 ms\n"
        "are left out. 'zav decode' decodes SBC in mono and plain stereo. It decodes\n"
        "neither dual nor joint nor .zsbc.\n"
        "Examples: zav encode --bitpool 40 speech.wav speech.sbc\n"
        "          zav encode speech.wav speech.opus");
    return verb;
}

CLI::App* addDecode(CLI::App& app, CommandLine& line) {
    auto* const verb = app.add_subcommand("decode", "Decode SBC or Opus to a 16-bit PCM file");
    addFile(*verb, "INPUT", line.decode.input,
            "SBC frames (.sbc), mono or plain stereo; Opus (.opus,\n"
            ".ogg, .oga, .zopus, also in MP4 and CAF), mono or\n"
            "stereo, packets of 60 ms at most");
    addFile(*verb, "OUTPUT", line.decode.output,
            wrapped("A name with " + extensionsOfTypes([](const FileType& type) {
                        return holdsPcm(type) && !holdsHighBytesFirst(type);
                    }) +
                    ", for SBC also with " + extensionsOfTypes(holdsHighBytesFirst) +
                    "; the extension chooses the type"));
    verb->footer(
        "SBC in joint stereo and dual channel is refused if its frames are not as long as\n"
        "those of plain stereo, which the decoder expects. Mostly they are not. Ogg Opus\n"
        "decodes to 48000 Hz, .zopus to the rate of the audio that was encoded.\n"
        "Example: zav decode speech.sbc speech.wav");
    return verb;
}

CLI::App* addCopy(CLI::App& app, CommandLine& line) {
    auto* const verb =
        app.add_subcommand("copy", "Copy audio, undecoded, from one type of file to another");
    addFile(*verb, "INPUT", line.copy.input, "Any audio file that 'zav info' knows");
    addFile(*verb, "OUTPUT", line.copy.output,
            wrapped("A name with " + extensionsOfTypes([](const FileType&) { return true; }) +
                    ": a type that can hold the encoding"));
    verb->footer(
        "Copies the audio, and its magic cookie if the type can store one. Comments, cue\n"
        "points and the like are not copied. Marks of the silence that an encoder adds at\n"
        "both ends are not copied, either, so that silence is played.\n"
        "Example: zav copy recording.wav recording.caf");
    return verb;
}

CLI::App* addInfo(CLI::App& app, CommandLine& line) {
    auto* const verb = app.add_subcommand("info", "Describe an audio file");
    verb->add_flag("--json", line.info.isJson, "As JSON, for programs");
    verb->add_flag("--packets", line.info.listsPackets,
                   "Also list all packets (of SBC: all frames); for\n"
                   "compressed audio and SBC only");
    addFile(*verb, "FILE", line.info.file,
            wrapped(namesOfTypes(holdsPcm) + " with PCM, A-law or mu-law; " +
                    namesOfTypes([](const FileType& type) { return !holdsPcm(type); }) +
                    "; AAC, ALAC, MP3 and Opus also in CAF; Opus, MP3 and AC-3 also in MP4; Opus, "
                    "Vorbis and FLAC in Ogg"));
    verb->footer("Example: zav info --json speech.sbc");
    return verb;
}

CLI::App* addRecord(CLI::App& app, CommandLine& line) {
    auto* const verb = app.add_subcommand("record", "Record from the microphone to a file");
    RecordOptions& options = line.record;
    verb->add_option("--seconds", options.seconds,
                     "Length in seconds, 0.001 to 100000; until Ctrl-C if\n"
                     "not given")
        ->check(inRange(0.001, 100000))
        ->type_name("N");
    verb->add_option("--rate", options.rate,
                     "Sample rate in Hz, 8000 to 192000; 48000 if not given")
        ->check(wholeInRange(8000, 192000))
        ->type_name("N");
    verb->add_option("--channels", options.channels, "Number of channels, 1 to 8; 1 if not given")
        ->check(wholeInRange(1, 8))
        ->type_name("N");
    addChoice(*verb, "--codec", options.codec,
              std::vector{"pcm", "aac", "alac", "flac", "opus", "sbc"},
              "pcm (16-bit), aac, alac, flac, opus or sbc; if not\n"
              "given, the output's extension decides. The next five\n"
              "options are for SBC only");
    addSbcOptions(*verb, options.sbc);
    addFile(*verb, "OUTPUT", options.output, wrapped("A name with " + recordableExtensions()));
    verb->footer(
        "Ctrl-C (or SIGTERM) ends the recording and completes the file. The file has its\n"
        "name from the start and replaces an older one. If zav is killed, all but the\n"
        "last two seconds can be read, except in compressed CAF.\n"
        "Compressed files end with a whole packet, so they may last a little longer than\n"
        "asked. SBC and .zopus fill the last packet with silence. 'zav play' and 'zav\n"
        "decode' take SBC in mono and plain stereo, not in dual and joint.\n"
        "'zav devices' shows which input is used.\n"
        "Examples: zav record note.m4a\n"
        "          zav record --seconds 10 --rate 16000 speech.wav");
    return verb;
}

CLI::App* addPlay(CLI::App& app, CommandLine& line) {
    auto* const verb = app.add_subcommand("play", "Play an audio file");
    verb->add_option("--delay", line.play.delayInSeconds,
                     "Start when this many seconds (0 to 60) of PCM are\n"
                     "queued (of compressed audio: one buffer). For a file\n"
                     "this adds almost no wait. If not given, start without\n"
                     "waiting")
        ->check(inRange(0, 60))
        ->type_name("N");
    addFile(*verb, "INPUT", line.play.input,
            "Any audio file that 'zav info' knows; SBC only in\n"
            "mono and plain stereo, Opus only in packets of 60 ms\n"
            "at most");
    verb->footer(
        "Ctrl-C stops at once. 'zav devices' shows which output is used.\n"
        "Example: zav play speech.sbc");
    return verb;
}

CLI::App* addDevices(CLI::App& app, CommandLine& line) {
    auto* const verb =
        app.add_subcommand("devices", "List the sound server's devices and which are used");
    verb->add_flag("--json", line.isDevicesJson, "As JSON, for programs");
    verb->footer(
        "zav uses the server's defaults (pactl set-default-sink, set-default-source),\n"
        "unless PULSE_SINK and PULSE_SOURCE name others. PipeWire ignores names that it\n"
        "does not know. PULSE_SERVER names another server.\n"
        "Example: zav devices");
    return verb;
}

/// `zav help VERB` prints what `zav VERB --help` prints.
CLI::App* addHelp(CLI::App& app, CommandLine& line) {
    auto* const verb = app.add_subcommand("help", "Show the verbs, or the options of one");
    verb->add_option("VERB", line.helpVerb, "The verb")->type_name("");
    return verb;
}

/// Formats the text itself. CLI11's `help()` would print the text of the verb `help`, because the
/// parser has just read that verb.
void printHelp(const CLI::App& app, const std::string& verb) {
    if (!verb.empty()) {
        requireVerb(app, verb);
    }
    const CLI::App& described = verb.empty() ? app : *app.get_subcommand(verb);
    const std::string name = app.get_name() + (verb.empty() ? "" : " " + verb);
    std::printf(
        "%s", app.get_formatter()->make_help(&described, name, CLI::AppFormatMode::Normal).c_str());
}

void run(const CLI::App& app, const CommandLine& line) {
    if (app.got_subcommand("encode")) {
        encode(line.encode, line.common);
    } else if (app.got_subcommand("decode")) {
        decode(line.decode, line.common);
    } else if (app.got_subcommand("copy")) {
        copy(line.copy, line.common);
    } else if (app.got_subcommand("info")) {
        info(line.info);
    } else if (app.got_subcommand("record")) {
        record(line.record, line.common);
    } else if (app.got_subcommand("play")) {
        play(line.play, line.common);
    } else if (app.got_subcommand("devices")) {
        devices(line.isDevicesJson);
    } else if (app.got_subcommand("help")) {
        printHelp(app, line.helpVerb);
    } else {
        throw UsageFailure("no verb" + verbHint(app));
    }
}

std::string versionText() {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "zav %.1f", ZAVAudioStreamingVersionNumber);
    return text.data();
}

void showDiagnostics(std::string_view text) {
    StatusLine::wipe();
    std::fprintf(stderr, "%.*s\n", static_cast<int>(text.size()), text.data());
}

void dropDiagnostics(std::string_view /*text*/) {}

int report(const std::exception& failure, int exitCode) {
    std::fprintf(stderr, "zav: %s\n", failure.what());
    return exitCode;
}

int runCommandLine(int argc, char** argv) {
    CommandLine line;
    CLI::App app("Moves audio between microphone, loudspeaker, files, SBC and Opus streams.",
                 "zav");
    app.require_subcommand(0, 1);
    app.get_formatter()->label("REQUIRED", "");
    app.get_formatter()->label("SUBCOMMAND", "VERB");
    app.get_formatter()->column_width(kHelpColumn);
    app.set_version_flag("--version", versionText());
    addCommonOptions(app, line.common);
    for (auto* const verb :
         {addRecord(app, line), addPlay(app, line), addEncode(app, line), addDecode(app, line),
          addCopy(app, line), addInfo(app, line), addDevices(app, line)}) {
        addCommonOptions(*verb, line.common);
        verb->group("Verbs");
    }
    addHelp(app, line)->group("Verbs");
    app.footer(
        "'zav VERB --help' shows the options of a verb.\n"
        "Files are regular files, not pipes. An output that exists is replaced.\n"
        "Exit code: 0 done, 1 failed, 2 wrong usage.");
    requireVerbFirst(app, {argv + std::min(argc, 1), argv + argc});
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            app.exit(error);
            finishStandardOutput();
            return EXIT_SUCCESS;
        }
        const auto verbs = app.get_subcommands();
        throw UsageFailure(problemOf(error, app) + "; see 'zav " +
                           (verbs.empty() ? "" : verbs.front()->get_name() + " ") + "--help'");
    }
    zav::setDiagnosticsHandler(line.common.isVerbose ? showDiagnostics : dropDiagnostics);
    run(app, line);
    finishStandardOutput();
    return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return runCommandLine(argc, argv);
    } catch (const UsageFailure& failure) {
        return report(failure, kExitUsage);
    } catch (const std::exception& failure) {
        return report(failure, EXIT_FAILURE);
    }
}
