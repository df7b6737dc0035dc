#pragma once

namespace vendor::quarno::brindlecove::audio::hal {

/** Gets battery and charger events, on the notifier's thread. */
class PowerEventListener {
  public:
    virtual ~PowerEventListener() = default;

    /** `level` in percent, 0..100. */
    virtual void OnBatteryLevelChanged(int level) = 0;

    virtual void OnBatteryCycleCountChanged(int count) = 0;

    virtual void OnWirelessChargerConnected(bool connected) = 0;

    virtual void OnDockChargerConnected(bool connected) = 0;
};

}  // namespace vendor::quarno::brindlecove::audio::hal
