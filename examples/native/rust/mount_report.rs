//! A native plugin in Rust: writes down what is mounted where when the host's storage is ready, so
//! that support engineers see later what the boot had before it.

mod bootforge;

use bootforge::{entry, text, texts, Metadata, Operations, Text};
use std::fs;
use std::io::{Error, ErrorKind, Result};
use std::os::raw::c_int;
use std::path::Path;

const REPORT: &str = "/var/lib/nimbus/mounts";

/// "POINT TYPE" for each line of the kernel's table.
fn mounts(table: &str) -> Vec<String> {
    let mut points: Vec<String> = table
        .lines()
        .filter_map(|line| {
            let fields: Vec<&str> = line.split(' ').collect();
            Some(format!("{} {}", fields.get(1)?, fields.get(2)?))
        })
        .collect();
    points.sort();
    points
}

fn write_report() -> Result<()> {
    let points = mounts(&fs::read_to_string("/proc/mounts")?);
    if points.is_empty() {
        return Err(Error::new(ErrorKind::Other, "the kernel's table of mounts is empty"));
    }
    fs::create_dir_all(Path::new(REPORT).parent().unwrap_or(Path::new("/")))?;
    fs::write(REPORT, points.join("\n") + "\n")?;
    println!("mount_report: {} mounts", points.len());
    Ok(())
}

extern "C" fn start() -> c_int {
    entry("mount_report", write_report)
}

static REQUIRES: [Text; 2] = [text("storage-ready\0"), None];
static PROVIDES: [Text; 2] = [text("mounts-written\0"), None];
static DISABLING_FLAGS: [Text; 2] = [text("no-inventory\0"), None];

#[export_name = "metadata"]
pub static METADATA: Metadata = Metadata {
    api_version: 3,
    requires: texts(&REQUIRES),
    provides: texts(&PROVIDES),
    plugin_version: text("1.0\0"),
    run_once: false,
    required_flags: None,
    disabling_flags: texts(&DISABLING_FLAGS),
};

#[export_name = "operations"]
pub static OPERATIONS: Operations = Operations { start: Some(start), apply_host_profile: None };
