// Keeps a packet's current key where it was: code that walks the keys of a packet it was
// handed puts one on the stack, and the caller sees the current key unchanged afterwards.
#pragma once

class CEventPacket;
struct OBJECT_KEY;

class StObjectKeyPlaceKeeper
{
public:
    explicit StObjectKeyPlaceKeeper(CEventPacket* pEvent_I);
    virtual ~StObjectKeyPlaceKeeper();

    StObjectKeyPlaceKeeper(const StObjectKeyPlaceKeeper&) = delete;
    StObjectKeyPlaceKeeper& operator=(const StObjectKeyPlaceKeeper&) = delete;

private:
    CEventPacket* mpEvent;
    OBJECT_KEY* mpSavedKey;
};
