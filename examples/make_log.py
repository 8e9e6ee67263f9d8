#!/usr/bin/env python3
"""Writes a candump log ("-l" file form) of a short drive for vehicle.dbc.

    make_log.py [--frames N] [--seed S] [--output FILE]

Every message of the database is sent at its cycle time with smoothly
changing physical values, encoded by the signal layouts of vehicle.dbc
(byte order, factor and offset, signed raw values, the float signal as IEEE
single, the multiplexer stepping through its pages). A diagnostic request
and response pair goes out every three seconds, and a frame with an
identifier the database does not know every two and a half seconds.
The same seed gives the same file. Standard library only.
"""

import argparse
import math
import random
import struct
import sys

START_TIME_US = 1600000000 * 1000000 + 123456
UNKNOWN_ID = 0x555


class Signal:
    def __init__(self, name, start, length, motorola=False, signed=False,
                 factor=1.0, offset=0.0, minimum=0.0, maximum=0.0,
                 is_float=False, mode=None):
        self.name = name
        self.start = start
        self.length = length
        self.motorola = motorola
        self.signed = signed
        self.factor = factor
        self.offset = offset
        self.minimum = minimum
        self.maximum = maximum
        self.is_float = is_float
        self.mode = mode  # page of a multiplexed signal, else None

    def raw(self, physical):
        """The raw bits of a physical value, within the signal's range."""
        physical = min(max(physical, self.minimum), self.maximum)
        if self.is_float:
            return struct.unpack("<I", struct.pack("<f", physical))[0]
        value = int(round((physical - self.offset) / self.factor))
        if self.signed:
            low, high = -(1 << (self.length - 1)), (1 << (self.length - 1)) - 1
        else:
            low, high = 0, (1 << self.length) - 1
        value = min(max(value, low), high)
        return value & ((1 << self.length) - 1)  # two's complement


def put(data, signal, raw):
    """Sets the signal's bits in data. Bit b of the frame is bit b % 8 of
    byte b // 8. Intel: the start bit is the least significant bit, the
    following bits run upwards. Motorola: the start bit is the most
    significant bit, the following bits run towards bit 0 of the byte and
    continue at bit 7 of the next byte."""
    position = signal.start
    for i in range(signal.length):
        if signal.motorola:
            bit = (raw >> (signal.length - 1 - i)) & 1
        else:
            bit = (raw >> i) & 1
        if bit:
            data[position // 8] |= 1 << (position % 8)
        if signal.motorola:
            position = position + 15 if position % 8 == 0 else position - 1
        else:
            position += 1


class Message:
    def __init__(self, frame_id, name, dlc, cycle_ms, signals, extended=False):
        self.frame_id = frame_id
        self.name = name
        self.dlc = dlc
        self.cycle_us = cycle_ms * 1000
        self.signals = signals
        self.extended = extended

    def encode(self, values):
        data = bytearray(self.dlc)
        page = None
        for signal in self.signals:
            if signal.mode is None and signal.name in values and signal.name.endswith("Page"):
                page = int(values[signal.name])
        for signal in self.signals:
            if signal.mode is not None and signal.mode != page:
                continue
            put(data, signal, signal.raw(values[signal.name]))
        return data


S = Signal
MESSAGES = [
    Message(0x0C8, "EngineData1", 8, 20, [
        S("EngineSpeed", 7, 16, True, False, 0.25, 0, 0, 16383.75),
        S("EngineTorque", 23, 12, True, True, 0.5, 0, -1024, 1023.5),
        S("ThrottlePosition", 27, 8, True, False, 0.4, 0, 0, 100),
        S("EngineState", 35, 2, True, False, 1, 0, 0, 3),
        S("AcceleratorPedal", 47, 8, True, False, 0.4, 0, 0, 100),
        S("EngineAliveCounter", 55, 4, True, False, 1, 0, 0, 15),
        S("EngineChecksum", 63, 8, True, False, 1, 0, 0, 255),
    ]),
    Message(0x0D0, "EngineData2", 8, 100, [
        S("CoolantTemp", 0, 8, False, False, 1, -40, -40, 215),
        S("OilTemp", 8, 8, False, False, 1, -40, -40, 215),
        S("OilPressure", 16, 10, False, False, 1, 0, 0, 1000),
        S("FuelRate", 26, 14, False, False, 0.05, 0, 0, 819.15),
        S("IntakeAirTemp", 40, 8, False, True, 1, 0, -40, 127),
        S("BatteryVoltage", 48, 16, False, False, 0.001, 0, 0, 65.535),
    ]),
    Message(0x1A0, "GearboxStatus", 8, 20, [
        S("GearActual", 0, 4, False, False, 1, 0, 0, 15),
        S("GearTarget", 4, 4, False, False, 1, 0, 0, 15),
        S("GearLever", 8, 3, False, False, 1, 0, 0, 7),
        S("ClutchEngaged", 11, 1, False, False, 1, 0, 0, 1),
        S("ShiftInProgress", 12, 1, False, False, 1, 0, 0, 1),
        S("TransOilTemp", 16, 8, False, False, 1, -40, -40, 215),
        S("OutputShaftSpeed", 24, 16, False, False, 0.5, 0, 0, 32767.5),
        S("ConverterSlip", 40, 16, False, True, 0.25, 0, -8192, 8191.75),
    ]),
    Message(0x1B0, "WheelSpeeds", 8, 20, [
        S("WheelSpeedFL", 7, 16, True, False, 0.01, 0, 0, 655.35),
        S("WheelSpeedFR", 23, 16, True, False, 0.01, 0, 0, 655.35),
        S("WheelSpeedRL", 39, 16, True, False, 0.01, 0, 0, 655.35),
        S("WheelSpeedRR", 55, 16, True, False, 0.01, 0, 0, 655.35),
    ]),
    Message(0x1B8, "BrakeStatus", 6, 20, [
        S("BrakePressure", 0, 12, False, False, 0.1, 0, 0, 409.5),
        S("BrakePedalPressed", 12, 1, False, False, 1, 0, 0, 1),
        S("AbsActive", 13, 1, False, False, 1, 0, 0, 1),
        S("EspActive", 14, 1, False, False, 1, 0, 0, 1),
        S("VehicleSpeed", 16, 16, False, False, 0.01, 0, 0, 655.35),
        S("YawRate", 32, 16, False, True, 0.01, 0, -327.68, 327.67),
    ]),
    Message(0x1C0, "ChassisDynamics", 8, 20, [
        S("LongitudinalAccel", 0, 32, False, True, 1, 0, -50, 50, is_float=True),
        S("SteeringWheelAngle", 39, 16, True, True, 0.1, 0, -3276.8, 3276.7),
        S("SteeringWheelSpeed", 55, 8, True, False, 4, 0, 0, 1020),
    ]),
    Message(0x2A0, "DashboardDisplay", 4, 200, [
        S("Odometer", 0, 24, False, False, 0.1, 0, 0, 1677721.5),
        S("FuelLevel", 24, 8, False, False, 0.4, 0, 0, 100),
    ]),
    Message(0x2B0, "DashboardControls", 2, 500, [
        S("DisplayBrightness", 0, 7, False, False, 1, 0, 0, 100),
        S("DisplayUnits", 7, 1, False, False, 1, 0, 0, 1),
        S("TripReset", 8, 1, False, False, 1, 0, 0, 1),
    ]),
    Message(0x320, "DoorStatus", 4, 100, [
        S("DoorFL", 0, 2, False, False, 1, 0, 0, 3),
        S("DoorFR", 2, 2, False, False, 1, 0, 0, 3),
        S("DoorRL", 4, 2, False, False, 1, 0, 0, 3),
        S("DoorRR", 6, 2, False, False, 1, 0, 0, 3),
        S("TrunkState", 8, 2, False, False, 1, 0, 0, 3),
        S("CentralLock", 10, 2, False, False, 1, 0, 0, 3),
        S("WindowPositionFL", 16, 7, False, False, 1, 0, 0, 100),
        S("WindowPositionFR", 24, 7, False, False, 1, 0, 0, 100),
    ]),
    Message(0x330, "Lighting", 2, 100, [
        S("HeadlightMode", 0, 3, False, False, 1, 0, 0, 4),
        S("TurnIndicator", 3, 2, False, False, 1, 0, 0, 3),
        S("BrakeLight", 5, 1, False, False, 1, 0, 0, 1),
        S("InteriorLight", 6, 1, False, False, 1, 0, 0, 1),
        S("AmbientLightLevel", 8, 8, False, False, 4, 0, 0, 1020),
    ]),
    Message(0x3E0, "BodySensors", 8, 50, [
        S("SensorPage", 0, 2, False, False, 1, 0, 0, 3),
        S("SensorSequence", 4, 4, False, False, 1, 0, 0, 15),
        S("OutsideTemp", 8, 16, False, True, 0.01, 0, -40, 85, mode=0),
        S("Humidity", 24, 8, False, False, 0.5, 0, 0, 100, mode=0),
        S("CabinTemp", 8, 16, False, True, 0.01, 0, -40, 85, mode=1),
        S("CabinSetpoint", 24, 8, False, False, 0.5, 0, 15, 32, mode=1),
        S("RainIntensity", 8, 8, False, False, 1, 0, 0, 255, mode=2),
        S("LightSensor", 16, 16, False, False, 1, 0, 0, 65535, mode=2),
    ]),
    Message(0x1CFF0010, "GatewayStatus", 8, 1000, [
        S("GatewayUptime", 0, 32, False, False, 1, 0, 0, 4294967295),
        S("BusLoad", 32, 8, False, False, 0.5, 0, 0, 100),
        S("ActiveNodes", 40, 8, False, False, 1, 0, 0, 255),
        S("GatewayState", 48, 3, False, False, 1, 0, 0, 7),
    ], extended=True),
    Message(0x18DA10F1, "DiagRequest", 8, 3000, [
        S("DiagReqService", 7, 8, True, False, 1, 0, 0, 255),
        S("DiagReqSubFunction", 15, 8, True, False, 1, 0, 0, 255),
        S("DiagReqData", 23, 32, True, False, 1, 0, 0, 4294967295),
    ], extended=True),
    Message(0x18DAF110, "DiagResponse", 8, 3000, [
        S("DiagRespService", 7, 8, True, False, 1, 0, 0, 255),
        S("DiagRespSubFunction", 15, 8, True, False, 1, 0, 0, 255),
        S("DiagRespData", 23, 32, True, False, 1, 0, 0, 4294967295),
    ], extended=True),
]

# Overall gear ratios (gearbox times axle) and the speeds at which to shift up.
GEAR_RATIOS = [0, 15.0, 9.0, 6.2, 4.7, 3.8, 3.2]
SHIFT_UP_KMH = [0, 18, 34, 52, 72, 95]
WHEEL_CIRCUMFERENCE_M = 1.95
CYCLE_S = 40.0


class Vehicle:
    """A drive that repeats every 40 s: away from standstill, up to speed,
    cruising with some steering, braking back to a stop. Slow quantities
    (temperatures, fuel, odometer) keep going across the repeats."""

    def __init__(self, rng):
        self.rng = rng
        self.odometer = 48213.4
        self.last_t = 0.0
        self.alive = 0
        self.page = 0
        self.sequence = 0
        self.diag_counter = 0

    @staticmethod
    def speed(t):
        phase = t % CYCLE_S
        if phase < 1.5:  # standing
            return 0.0
        if phase < 14.0:  # accelerating
            x = (phase - 1.5) / 12.5
            return 95.0 * (3 * x * x - 2 * x * x * x)
        if phase < 26.0:  # cruising
            return 95.0 + 6.0 * math.sin((phase - 14.0) / 12.0 * 2 * math.pi)
        if phase < 36.0:  # braking
            x = (phase - 26.0) / 10.0
            return 95.0 * (1 - (3 * x * x - 2 * x * x * x))
        return 0.0

    def values(self, t):
        rng = self.rng
        v = self.speed(t)
        accel = (self.speed(t + 0.05) - self.speed(t - 0.05)) / 0.1 / 3.6  # m/s2
        dt = max(t - self.last_t, 0.0)
        self.odometer += v * dt / 3600.0
        self.last_t = t

        gear = 1
        for g in range(1, 6):
            if v >= SHIFT_UP_KMH[g]:
                gear = g + 1
        wheel_rpm = v / 3.6 / WHEEL_CIRCUMFERENCE_M * 60.0
        engine_rpm = max(780.0, wheel_rpm * GEAR_RATIOS[gear]) + rng.uniform(-6, 6)
        pedal = min(100.0, max(0.0, 12.0 + accel * 22.0)) if accel > -0.2 else 0.0
        if v == 0.0:
            pedal = 0.0
        braking = accel < -0.5 or v == 0.0
        brake_pressure = max(0.0, -accel * 18.0) if accel < -0.5 else (8.0 if v == 0.0 else 0.0)
        torque = 35.0 + pedal * 2.6 if pedal > 0 else -25.0 if v > 5 else 18.0
        steer = 0.0
        if v > 20:
            steer = 45.0 * math.sin(t / 7.0 * 2 * math.pi) * min(1.0, (v - 20) / 40)
        steer_speed = abs(45.0 * 2 * math.pi / 7.0 * math.cos(t / 7.0 * 2 * math.pi)) if v > 20 else 0.0
        yaw = math.degrees(v / 3.6 * math.radians(steer / 15.0) / 2.7)  # ratio 15, wheelbase 2.7 m
        warm = 1 - math.exp(-t / 600.0)
        coolant = 62.0 + 28.0 * warm
        noise = rng.uniform(-0.02, 0.02)
        wheel_noise = [rng.uniform(-0.05, 0.05) if v > 0 else 0.0 for _ in range(4)]

        self.alive = (self.alive + 1) & 0x0F
        phase = t % CYCLE_S
        door_open = phase < 1.0
        turn = 1 if 12.0 <= phase < 15.0 else (2 if 27.0 <= phase < 30.0 else 0)
        return {
            "EngineSpeed": engine_rpm,
            "EngineTorque": torque,
            "ThrottlePosition": min(100.0, pedal * 0.9 + 3.0),
            "EngineState": 2,
            "AcceleratorPedal": pedal,
            "EngineAliveCounter": self.alive,
            "EngineChecksum": 0,
            "CoolantTemp": coolant,
            "OilTemp": 55.0 + 40.0 * warm,
            "OilPressure": 180.0 + engine_rpm * 0.09,
            "FuelRate": 0.7 + pedal * 0.25 + engine_rpm * 0.0004,
            "IntakeAirTemp": 21.0 + 6.0 * warm,
            "BatteryVoltage": 14.1 + 0.05 * math.sin(t) + noise,
            "GearActual": gear,
            "GearTarget": gear,
            "GearLever": 3,
            "ClutchEngaged": 1 if v > 0.5 else 0,
            "ShiftInProgress": 0,
            "TransOilTemp": 50.0 + 30.0 * warm,
            "OutputShaftSpeed": wheel_rpm * 3.2,
            "ConverterSlip": (120.0 - v * 1.1) if v < 100 else -8.0,
            "WheelSpeedFL": v * (1 + steer / 3000.0) + wheel_noise[0],
            "WheelSpeedFR": v * (1 - steer / 3000.0) + wheel_noise[1],
            "WheelSpeedRL": v * (1 + steer / 3500.0) + wheel_noise[2],
            "WheelSpeedRR": v * (1 - steer / 3500.0) + wheel_noise[3],
            "BrakePressure": brake_pressure,
            "BrakePedalPressed": 1 if braking else 0,
            "AbsActive": 0,
            "EspActive": 0,
            "VehicleSpeed": v,
            "YawRate": yaw,
            "LongitudinalAccel": accel + noise,
            "SteeringWheelAngle": steer,
            "SteeringWheelSpeed": steer_speed,
            "Odometer": self.odometer,
            "FuelLevel": max(0.0, 62.0 - t * 0.002),
            "DisplayBrightness": 80,
            "DisplayUnits": 0,
            "TripReset": 0,
            "DoorFL": 2 if door_open else 0,
            "DoorFR": 0,
            "DoorRL": 0,
            "DoorRR": 0,
            "TrunkState": 0,
            "CentralLock": 1 if v < 15 and phase < 10 else 2,
            "WindowPositionFL": 0,
            "WindowPositionFR": 0,
            "HeadlightMode": 2,
            "TurnIndicator": turn if (t % 0.8) < 0.4 else 0,
            "BrakeLight": 1 if braking else 0,
            "InteriorLight": 1 if door_open else 0,
            "AmbientLightLevel": 420.0 + 60.0 * math.sin(t / 50.0),
            "OutsideTemp": 17.5 + 0.5 * math.sin(t / 120.0),
            "Humidity": 55.0 + 2.0 * math.sin(t / 90.0),
            "CabinTemp": 19.0 + 2.5 * warm,
            "CabinSetpoint": 21.5,
            "RainIntensity": 0,
            "LightSensor": 1700.0 + 250.0 * math.sin(t / 50.0),
            "GatewayUptime": 3600 + int(t),
            "BusLoad": 27.0 + rng.uniform(-1.5, 1.5),
            "ActiveNodes": 6,
            "GatewayState": 1,
            "DiagReqService": 0x22,
            "DiagReqSubFunction": 0xF1,
            "DiagReqData": 0x90000000,
            "DiagRespService": 0x62,
            "DiagRespSubFunction": 0xF1,
            "DiagRespData": 0x90000000 | (self.diag_counter & 0xFFFF),
        }

    def frame(self, message, t):
        values = self.values(t)
        if message.name == "BodySensors":
            values["SensorPage"] = self.page
            values["SensorSequence"] = self.sequence
            self.page = (self.page + 1) % 3
            self.sequence = (self.sequence + 1) & 0x0F
        if message.name == "DiagResponse":
            self.diag_counter += 1
        data = message.encode(values)
        if message.name == "EngineData1":
            checksum = 0
            for byte in data[:7]:
                checksum ^= byte
            data[7] = checksum
        return data


def main(argv=None):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--frames", type=int, default=3000, help="number of frames (default 3000)")
    parser.add_argument("--seed", type=int, default=1, help="random seed (default 1)")
    parser.add_argument("--output", "-o", default="-", help="output file (default: standard output)")
    args = parser.parse_args(argv)

    rng = random.Random(args.seed)
    vehicle = Vehicle(rng)
    # (next due time in microseconds, order, message); the order keeps ties stable.
    schedule = []
    for order, message in enumerate(MESSAGES):
        offset = (order * 1700) % message.cycle_us
        if message.name == "DiagRequest":
            offset = 1000000
        elif message.name == "DiagResponse":
            offset = 1000000 + 4200
        schedule.append([offset, order, message])
    next_unknown = 2500000
    last_stamp = 0

    def timestamp(candidate):
        # Log lines stay in time order, at least 20 us apart.
        nonlocal last_stamp
        last_stamp = max(candidate, last_stamp + 20)
        return last_stamp

    out = sys.stdout if args.output == "-" else open(args.output, "w", newline="\n")
    try:
        written = 0
        while written < args.frames:
            entry = min(schedule)
            due, _, message = entry
            if next_unknown <= due:
                stamp = timestamp(START_TIME_US + next_unknown + rng.randint(0, 80))
                payload = bytes((written + i) & 0xFF for i in range(8))
                out.write("(%d.%06d) can0 %03X#%s\n" % (stamp // 1000000, stamp % 1000000,
                                                       UNKNOWN_ID, payload.hex().upper()))
                written += 1
                next_unknown += 2500000
                continue
            entry[0] += message.cycle_us
            jitter = rng.randint(0, 150)
            stamp = timestamp(START_TIME_US + due + jitter)
            data = vehicle.frame(message, (due + jitter) / 1e6)
            if message.extended:
                ident = "%08X" % message.frame_id
            else:
                ident = "%03X" % message.frame_id
            out.write("(%d.%06d) can0 %s#%s\n" % (stamp // 1000000, stamp % 1000000,
                                                 ident, bytes(data).hex().upper()))
            written += 1
    finally:
        if out is not sys.stdout:
            out.close()
    return 0


if __name__ == "__main__":
    sys.exit(main())
