#ifndef INPUTSOUTPUTS_H
#define INPUTSOUTPUTS_H

/// The logical inputs and outputs of the actuator board: what a channel is for, whichever channel
/// serves it on a given machine (see ActuatorBoardSettings).
class InputsOutputs
{
public:
    /// Numbered from 0 by board function, in blocks so that a function can grow.
    enum InputsOutputsUUID : int {
        // inputs
        DoorSwitch = 0,
        SafetySwitch = 1,
        WasteBucketSwitch = 2,
        DripTraySensor = 3,
        SolidWasteSensor = 4,
        CupSensor = 5,
        CupCarrierHomeSwitch = 6,
        WaterLevelSensor = 7,
        FlowMeter = 8,
        BrewerHomeSwitch = 9,
        // motors
        BrewerMotor = 20,
        GrinderMotor = 21,
        Canister1Motor = 22,
        Canister2Motor = 23,
        Canister3Motor = 24,
        Canister4Motor = 25,
        Canister5Motor = 26,
        Canister6Motor = 27,
        Mixer1Motor = 28,
        Mixer2Motor = 29,
        CupCarrierMotor = 30,
        NozzleMotor = 31,
        // pumps, valves, heating
        WaterPump = 40,
        BranchPipePump = 41,
        InletValve = 42,
        EspressoValve = 43,
        HotWaterValve = 44,
        ColdWaterValve = 45,
        EspressoBoilerHeater = 46,
        InstantBoilerHeater = 47,
        // lights, fans, counters
        DoorLight = 60,
        DispensingLight = 61,
        CoffeeCanisterLight = 62,
        ExhaustFan = 63,
        MechanicalCounter = 64,

        IONone = 255, ///< no logical input or output
    };
};

#endif // INPUTSOUTPUTS_H
