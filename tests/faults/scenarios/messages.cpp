// SSP messages, components, configuration, and the building blocks of both.
#include "scenarios/families.hpp"
#include "scenarios/steps.hpp"

#include <cstddef>
#include <optional>
#include <vector>

namespace faults {

namespace {

void round_trip_hid(Run& run) {
    SspPad model = described_as(9);
    model.attach(plug_hid());
    expect_pads(run, 1);
    run.expect_healthy(send_message(run, 1, component_query) && receive_message(run, 1) > 0, "no answer comes");
    bus().hooks.send_feature = {};
    stop(run);
}

void round_trip_vcom(Run& run) {
    const VcomPad pad;
    expect_pads(run, 1);
    run.expect_healthy(send_message(run, 1, component_query) && receive_message(run, 1) > 0, "no answer comes");
    stop(run);
}

void answer_never_comes(Run& run) {
    VcomPad pad;
    plug_hid();
    expect_pads(run, 2);
    run.expect_healthy(receive_message(run, 1, 30) == 0 && receive_message(run, 2, 30) == 0, "something came");
    stop(run);
}

void answer_in_pieces(Run& run) {
    VcomPad pad;
    expect_pads(run, 1);
    const Bytes stream = framed(base(1, Bytes(150, 0x55)));
    {
        const auto guard = bus().lock();
        for (std::size_t at = 0; at < stream.size(); at += 30) {
            pad.device->incoming.push_back(core_test::part(stream, at, 30));
        }
    }
    run.expect_healthy(receive_message(run, 1) == 153, "the message is not whole");
    stop(run);
}

void answers_among_pen_data(Run& run) {
    VcomPad pad;
    expect_pads(run, 1);
    for (const Bytes& report : reports()) {
        pad.bring(pen(report));
    }
    pad.bring(base(1, {0x10, 1, 2}));
    pad.bring(pen(Bytes(64, 7)));
    run.expect_healthy(receive_message(run, 1) > 0, "no message comes");
    run.expect_healthy(read_file(run, 1), "no report comes");
    stop(run);
}

void answer_cut_at_the_end(Run& run) {
    VcomPad pad;
    expect_pads(run, 1);
    {
        const auto guard = bus().lock();
        pad.device->incoming.push_back(core_test::part(framed(base(1, Bytes(60, 1))), 0, 20));
    }
    run.expect_healthy(receive_message(run, 1) == 0, "half a message came");
    pad.bring(base(1, {0x10, 1, 2}));
    receive_message(run, 1);
    stop(run);
}

void components_vcom(Run& run) {
    with_vcom_record([&](vx_device* device, VcomPad&) {
        run.core("ssp_common_is_ssp_supported", ssp_common_is_ssp_supported(device));
        run.core("ssp_common_components_id_initialize_table", ssp_common_components_id_initialize_table(device));
        const int id = run.core("ssp_common_component_id_get_id", ssp_common_component_id_get_id(device, 11));
        run.expect_healthy(id == 1, "the component is not found");
    });
}

void components_hid(Run& run) {
    HidInterface& pad = bus().plug(pad_of_type(16));
    SspPad model = described_as(16);
    model.attach(pad);
    OpenHidSspRecord record(pad, 16);
    run.core("ssp_common_components_id_initialize_table", ssp_common_components_id_initialize_table(record.get()));
    const int id = run.core("ssp_common_component_id_get_id", ssp_common_component_id_get_id(record.get(), 3));
    run.expect_healthy(id == 2, "the component is not found");
    run.core("ssp_common_get_conf_state", ssp_common_get_conf_state(record.get()));
}

void description(Run& run) {
    with_vcom_record([&](vx_device* device, VcomPad& pad) {
        const int got = run.core("ssp_common_get_pad_description", ssp_common_get_pad_description(device));
        run.expect_healthy(got == 0 && device->serial_number == pad.model.serial_number, "no description comes");
    });
}

void connection_type(Run& run) {
    with_vcom_record([&](vx_device* device, VcomPad& pad) {
        pad.model.components = {5, 11, 3, 1, 4};
        run.core("ssp_common_ct_communication_get_current_connection",
                 ssp_common_ct_communication_get_current_connection(device));
        run.core("ssp_common_ct_communication_set_current_connection",
                 ssp_common_ct_communication_set_current_connection(device, 1));
    });
}

void modes(Run& run) {
    with_vcom_record([&](vx_device* device, VcomPad&) {
        run.core("ssp_common_ct_signpad_initialize_modes_id_table",
                 ssp_common_ct_signpad_initialize_modes_id_table(device));
        const int id = run.core("ssp_common_ct_signpad_get_mode_id", ssp_common_ct_signpad_get_mode_id(device, 6));
        run.expect_healthy(id == 3, "the mode is not found");
    });
}

void buttons(Run& run) {
    with_vcom_record([&](vx_device* device, VcomPad&) {
        const int pressed = run.core("ssp_common_get_button_event", ssp_common_get_button_event(device, 5));
        run.expect_healthy(pressed == 0x77, "the button is not told");
        run.core("ssp_common_get_user_input", ssp_common_get_user_input(device));
    });
}

void set_variable(Run& run) {
    with_vcom_record([&](vx_device* device, VcomPad&) {
        const int set = run.core("ssp_common_set_configuration_variable",
                                 ssp_common_set_configuration_variable(device, "key", "value"));
        run.expect_healthy(set == 0, "the variable is not set");
    });
}

void persist_variable(Run& run) {
    with_vcom_record([&](vx_device* device, VcomPad&) {
        const int persisted = run.core("ssp_common_persist_configuration_variable",
                                       ssp_common_persist_configuration_variable(device, "key"));
        run.expect_healthy(persisted == 0, "the variable is not persisted");
    });
}

void wait_for_handler(Run& run) {
    with_vcom_record([&](vx_device* device, VcomPad& pad) {
        pad.model.replace = [queries = 0](const Bytes& message) mutable -> std::optional<std::vector<Bytes>> {
            if (message != base(2, {0x10})) {
                return std::nullopt;
            }
            return std::vector<Bytes>{base(2, {0x10, 1, static_cast<unsigned char>(++queries < 3 ? 2 : 3)})};
        };
        const int state =
            run.core("ssp_common_check_configuration_state", ssp_common_check_configuration_state(device));
        run.expect_healthy(state == 3, "the handler is not waited for");
    });
}

void button_states(Run& run) {
    with_vcom_record([&](vx_device* device, VcomPad&) {
        run.core("ssp_common_set_button_state", ssp_common_set_button_state(device, 1, 0, 1, 5));
        run.core("ssp_common_doc_view_buttons_refresh", ssp_common_doc_view_buttons_refresh(device));
        run.core("ssp_common_signature_buttons_refresh", ssp_common_signature_buttons_refresh(device));
        run.core("ssp_common_doc_sign_buttons_refresh", ssp_common_doc_sign_buttons_refresh(device));
    });
}

void pen_data_switch(Run& run) {
    with_vcom_record([&](vx_device* device, VcomPad&) {
        const int on = run.core("core_ssp_biodata_sending", core_ssp_biodata_sending(device, 1));
        const int off = run.core("core_ssp_biodata_sending", core_ssp_biodata_sending(device, 0));
        run.expect_healthy(on >= 0 && off >= 0, "pen data is not switched");
    });
}

void ask_legacy(Run& run, vx_device* device) {
    dev_fw_version version{};
    flags_status status{};
    run.core("core_read_version", core_read_version(device, &version));
    run.core("__core_get_status", __core_get_status(device, &status));
    run.core("core_set_pad_mode", core_set_pad_mode(device, 2, 0));
    run.core("__core_get_pad_mode", __core_get_pad_mode(device));
    run.core("core_create_signature_rectangle", core_create_signature_rectangle(device, 1, 2, 3, 4, 5));
}

void legacy_hid(Run& run) {
    with_hid_record(9, [&](vx_device* device, HidInterface& pad) {
        ask_legacy(run, device);
        run.expect_healthy(pad.mode == 2, "the mode is not set");
    });
}

void legacy_vcom(Run& run) {
    with_vcom_record([&](vx_device* device, VcomPad& pad) {
        ask_legacy(run, device);
        run.expect_healthy(pad.model.mode == 2, "the mode is not set");
    });
}

void mode_type_8(Run& run) {
    with_hid_record(8, [&](vx_device* device, HidInterface& pad) {
        run.core("core_set_pad_mode", core_set_pad_mode(device, 2, 1));
        run.expect_healthy(pad.mode == 2, "the mode is not set");
    });
}

void reports_of_a_record(Run& run) {
    with_hid_record(9, [&](vx_device* device, HidInterface& pad) {
        Bytes report(64, 4);
        run.core("core_feature_write", core_feature_write(device, report.data(), 64));
        run.core("core_output_write", core_output_write(device, report.data(), 64));
        pad.input_reports.push_back(report);
        const int read = run.core("core_input_read", core_input_read(device, report.data(), 64));
        run.expect_healthy(read == 64, "the report is not read");
    });
}

constexpr Scenario scenarios_here[]{
    {"round-trip-hid", round_trip_hid},
    {"round-trip-vcom", round_trip_vcom},
    {"answer-never", answer_never_comes},
    {"answer-in-pieces", answer_in_pieces},
    {"answer-among-pen-data", answers_among_pen_data},
    {"answer-cut", answer_cut_at_the_end},
    {"components-hid", components_hid},
    {"components-vcom", components_vcom},
    {"description", description},
    {"connection-type", connection_type},
    {"modes", modes},
    {"buttons", buttons},
    {"configuration-set", set_variable},
    {"configuration-persist", persist_variable},
    {"configuration-wait", wait_for_handler},
    {"configuration-buttons", button_states},
    {"pen-data-switch", pen_data_switch},
    {"legacy-hid", legacy_hid},
    {"legacy-vcom", legacy_vcom},
    {"legacy-mode-type-8", mode_type_8},
    {"record-reports", reports_of_a_record},
};

} // namespace

std::span<const Scenario> messages() {
    return scenarios_here;
}

} // namespace faults
