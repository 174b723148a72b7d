#include "Tools/SimulatedDriver/SimAppleEventReply.h"

#include "Tools/SimulatedDriver/SSimDriverConfig.h"

#include <AE/AEDataModel.h>
#include <AE/AppleEvents.h>

namespace
{
std::string FourCharText(std::uint32_t code_I)
{
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8)
    {
        char c = static_cast<char>((code_I >> shift) & 0xFF);
        text += (c >= 0x20 && c < 0x7F) ? c : '?';
    }
    return text;
}

// Disposes of a descriptor at the end of its scope.
struct StDesc
{
    AEDesc desc;
    StDesc() { AEInitializeDesc(&desc); }
    ~StDesc() { AEDisposeDesc(&desc); }
    StDesc(const StDesc&) = delete;
    StDesc& operator=(const StDesc&) = delete;
};
} // namespace

SSimAppleEventAnswer AnswerSimAppleEvent(const std::uint8_t* bytes_I, std::size_t size_I,
                                         const SSimDriverConfig& config_I)
{
    SSimAppleEventAnswer answer;
    StDesc event;
    if (bytes_I == nullptr || AEUnflattenDescFromBytes(bytes_I, size_I, &event.desc) != noErr ||
        event.desc.descriptorType != typeAppleEvent)
    {
        return answer;
    }
    answer.understood = true;
    AEEventClass eventClass = 0;
    AEEventID eventID = 0;
    AEGetAttributePtr(&event.desc, keyEventClassAttr, typeType, nullptr, &eventClass,
                      sizeof(eventClass), nullptr);
    AEGetAttributePtr(&event.desc, keyEventIDAttr, typeType, nullptr, &eventID, sizeof(eventID),
                      nullptr);
    answer.eventName = FourCharText(eventClass) + "/" + FourCharText(eventID);
    if (!config_I.appleEventReply)
    {
        return answer;
    }

    StDesc reply;
    if (AECreateAppleEvent(kCoreEventClass, kAEAnswer, nullptr, kAutoGenerateReturnID,
                           kAnyTransactionID, &reply.desc) != noErr)
    {
        return answer;
    }
    // The forwarding side looks at the first item only for 'errn': it goes first.
    if (config_I.appleEventErrorNumber)
    {
        std::int32_t number = *config_I.appleEventErrorNumber;
        AEPutParamPtr(&reply.desc, keyErrorNumber, typeSInt32, &number, sizeof(number));
    }
    AEPutParamPtr(&reply.desc, keyDirectObject, typeUTF8Text, config_I.name.data(),
                  static_cast<Size>(config_I.name.size()));

    std::vector<std::uint8_t> flat(static_cast<std::size_t>(AESizeOfFlattenedDesc(&reply.desc)));
    Size written = 0;
    if (AEFlattenDesc(&reply.desc, reinterpret_cast<Ptr>(flat.data()),
                      static_cast<Size>(flat.size()), &written) != noErr)
    {
        return answer;
    }
    flat.resize(static_cast<std::size_t>(written));
    answer.reply = std::move(flat);
    return answer;
}
