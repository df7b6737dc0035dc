// What dumpsys shows.
#include <sys/socket.h>

#include "tests/product/hal_test.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {
namespace {

using DumpTest = RunningHalTest;

TEST_F(DumpTest, ShowsTheHalAndItsClientsInOneWriteForEachLine) {
    hal_->OnDockChargerConnected(true);
    hal_->OnRoutingGraphChanged({.edges = {{"deep-buffer-playback", "speaker"}}});
    (void)Start(KEYPHRASE, -10,
                {.captureRequested = true,
                 .phraseRecognitionExtras = {{.recognitionModes = 1, .levels = {}},
                                             {.id = 3, .levels = {{.userId = 2}, {}}}},
                 .audioCapabilities = 1,
                 .data = {0, 255}});
    (void)Load(GENERIC);
    int ends[2];
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0, ends));
    hal_->Dump(utils::dumpsys::DumpsysInfo(ends[0]));
    std::string text;
    char packet[4096];
    for (ssize_t size; (size = read(ends[1], packet, sizeof(packet))) > 0;) {
        const std::string_view line(packet, static_cast<size_t>(size));
        EXPECT_EQ(line.size() - 1, line.find('\n')) << "not a line by itself: " << line;
        text += line;
    }
    close(ends[0]);
    close(ends[1]);
    EXPECT_EQ(R"(is dsp online: 1
mic swap enabled: 0
docked: 1
Active usage count: 0
  Client: 1
    Io handle: -10
    Engine type: Hotword
    Client loaded: true
    Client started: true
    Aec enabled: true
    Model info: 
      SoundModel type: KEYPHRASE
      SoundModel size: 5
      SoundModel uuid: uuid of any
      SoundModel vendor uuid: vendor uuid 1
    Runtime state: StartDetecting
    Recognition config: RecognitionConfig{captureRequested: true, phraseRecognitionExtras: [)"
              "PhraseRecognitionExtra{id: 0, recognitionModes: 1, confidenceLevel: 0, levels: []}, "
              "PhraseRecognitionExtra{id: 3, recognitionModes: 0, confidenceLevel: 0, levels: ["
              "ConfidenceLevel{userId: 2, levelPercent: 0}, "
              "ConfidenceLevel{userId: 0, levelPercent: 0}]}], "
              R"(audioCapabilities: 1, data: [0, 255]}
  Client: 2
    Io handle: 0
    Engine type: AmbientMusic
    Client loaded: true
    Client started: false
    Aec enabled: false
    Model info: 
      SoundModel type: GENERIC
      SoundModel size: 5
      SoundModel uuid: uuid of any
      SoundModel vendor uuid: vendor uuid 2
    Runtime state: ModelLoaded
    Recognition config: RecognitionConfig{captureRequested: false, phraseRecognitionExtras: [], )"
              "audioCapabilities: 0, data: []}\n",
              text);
}

TEST_F(DumpTest, ArgumentsSelectLinesByTheBeginningOfTheirTag) {
    EXPECT_EQ(0, hal_->InternalForceRecognition());
    const std::string all = DumpOf(*hal_);
    const size_t clients = all.find("  Client: 0\n");
    EXPECT_EQ(all, DumpOf(*hal_, {"StHal::"}));
    EXPECT_EQ(all, DumpOf(*hal_, {"nobody", ""}));
    EXPECT_EQ(all.substr(clients), DumpOf(*hal_, {"StHal::Client"}));
    EXPECT_EQ(all.substr(0, clients), DumpOf(*hal_, {"StHal::SoundTriggerHal", "nobody"}));
    EXPECT_EQ("", DumpOf(*hal_, {"StHal::SoundTriggerHalX", "sthal"}));
    EXPECT_EQ("INVALID 0 00000000-0000-0000-0000-000000000000",
              Field(0, "SoundModel type") + " " + Field(0, "SoundModel size") + " " +
                      Field(0, "SoundModel vendor uuid"));
}

TEST_F(DumpTest, IndentationIsCappedAndNeverNegative) {
    EXPECT_EQ(0, hal_->InternalForceRecognition());
    const std::string blanks(44, ' ');
    EXPECT_THAT(DumpOf(*hal_, {}, 43), StartsWith(blanks.substr(1) + "is dsp"));
    for (const int indentation : {44, 50, INT32_MAX}) {
        EXPECT_THAT(DumpOf(*hal_, {}, indentation), StartsWith(blanks + "is dsp"));
        EXPECT_THAT(DumpOf(*hal_, {"StHal::Client"}, indentation), StartsWith(blanks + "Client"));
    }
    EXPECT_EQ(DumpOf(*hal_), DumpOf(*hal_, {}, INT32_MIN));
    hal_->Dump(utils::dumpsys::DumpsysInfo(-1));  // Nowhere to write to: harmless.
}

}  // namespace
}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
