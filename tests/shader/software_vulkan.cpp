#include "tests/shader/software_vulkan.h"

#include <algorithm>
#include <stdexcept>

namespace Veldrift {
namespace {

constexpr uint32_t kGroupPixels = 16;
constexpr vk::ImageSubresourceRange kWholeImage{vk::ImageAspectFlagBits::eColor, 0, 1, 0, 1};

vk::raii::Instance MakeInstance(const vk::raii::Context& context) {
  const vk::ApplicationInfo application{{}, 0, {}, 0, VK_API_VERSION_1_1};
  return {context, vk::InstanceCreateInfo{{}, &application}};
}

vk::BufferImageCopy CopyOf(vk::DeviceSize offset, vk::Extent3D size) {
  return {offset, 0, 0, {vk::ImageAspectFlagBits::eColor, 0, 0, 1}, {}, size};
}

// All that was written before is seen by all that comes then.
void Barrier(const vk::raii::CommandBuffer& commands, vk::Image image, vk::ImageLayout from) {
  const vk::ImageMemoryBarrier barrier{
      vk::AccessFlagBits::eMemoryWrite,
      vk::AccessFlagBits::eMemoryRead | vk::AccessFlagBits::eMemoryWrite,
      from,
      vk::ImageLayout::eGeneral,
      VK_QUEUE_FAMILY_IGNORED,
      VK_QUEUE_FAMILY_IGNORED,
      image,
      kWholeImage};
  commands.pipelineBarrier(vk::PipelineStageFlagBits::eAllCommands,
                           vk::PipelineStageFlagBits::eAllCommands, {}, {}, {}, barrier);
}

}  // namespace

SoftwareVulkan::SoftwareVulkan(const std::vector<uint32_t>& shader)
    : instance_(MakeInstance(context_)),
      physical_(FindDevice()),
      device_(MakeDevice()),
      bindings_(MakeBindings()),
      layout_(device_, vk::PipelineLayoutCreateInfo{{}, *bindings_}),
      pipeline_(MakePipeline(shader)),
      descriptors_(nullptr),
      commands_(device_, vk::CommandPoolCreateInfo{}) {
  const vk::DescriptorPoolSize sizes[] = {{vk::DescriptorType::eSampledImage, 1},
                                          {vk::DescriptorType::eStorageImage, 2}};
  descriptors_ = {device_, {vk::DescriptorPoolCreateFlagBits::eFreeDescriptorSet, 1, sizes}};
}

std::vector<uint8_t> SoftwareVulkan::Convert(const std::vector<uint8_t>& bgra, uint32_t width,
                                             uint32_t height) {
  using Usage = vk::ImageUsageFlagBits;
  constexpr auto kPlane = Usage::eStorage | Usage::eTransferDst | Usage::eTransferSrc;
  const vk::Extent3D whole{width, height, 1};
  const Image frame =
      MakeImage(whole, vk::Format::eB8G8R8A8Unorm, Usage::eSampled | Usage::eTransferDst);
  const Image luma = MakeImage(whole, vk::Format::eR8Unorm, kPlane);
  const Image chroma = MakeImage({width / 2, height / 2, 1}, vk::Format::eR8G8Unorm, kPlane);
  const size_t lumaBytes = size_t{width} * height;
  const size_t planeBytes = lumaBytes * 3 / 2;
  const Buffer in = MakeBuffer(bgra.size());
  const Buffer planes = MakeBuffer(planeBytes);
  std::copy(bgra.begin(), bgra.end(), in.bytes);
  std::fill_n(planes.bytes, planeBytes, kUnwritten);

  const vk::raii::DescriptorSet bound = Bind({&frame, &luma, &chroma});
  const vk::raii::CommandBuffer commands = std::move(
      vk::raii::CommandBuffers(device_, {*commands_, vk::CommandBufferLevel::ePrimary, 1}).front());
  commands.begin(vk::CommandBufferBeginInfo{});
  constexpr auto kLayout = vk::ImageLayout::eGeneral;
  for (const Image* image : {&frame, &luma, &chroma}) {
    Barrier(commands, *image->image, vk::ImageLayout::eUndefined);
  }
  commands.copyBufferToImage(*in.buffer, *frame.image, kLayout, CopyOf(0, frame.size));
  commands.copyBufferToImage(*planes.buffer, *luma.image, kLayout, CopyOf(0, luma.size));
  commands.copyBufferToImage(*planes.buffer, *chroma.image, kLayout,
                             CopyOf(lumaBytes, chroma.size));
  for (const Image* image : {&frame, &luma, &chroma}) Barrier(commands, *image->image, kLayout);
  commands.bindPipeline(vk::PipelineBindPoint::eCompute, *pipeline_);
  commands.bindDescriptorSets(vk::PipelineBindPoint::eCompute, *layout_, 0, *bound, {});
  commands.dispatch((width + kGroupPixels - 1) / kGroupPixels,
                    (height + kGroupPixels - 1) / kGroupPixels, 1);
  for (const Image* image : {&luma, &chroma}) Barrier(commands, *image->image, kLayout);
  commands.copyImageToBuffer(*luma.image, kLayout, *planes.buffer, CopyOf(0, luma.size));
  commands.copyImageToBuffer(*chroma.image, kLayout, *planes.buffer,
                             CopyOf(lumaBytes, chroma.size));
  commands.end();
  Submit(commands);
  return {planes.bytes, planes.bytes + planeBytes};
}

vk::raii::PhysicalDevice SoftwareVulkan::FindDevice() const {
  for (vk::raii::PhysicalDevice& device : vk::raii::PhysicalDevices(instance_)) {
    if (device.getProperties().deviceType == vk::PhysicalDeviceType::eCpu) return std::move(device);
  }
  throw std::runtime_error("no software Vulkan on this machine");
}

vk::raii::Device SoftwareVulkan::MakeDevice() const {
  const float priority = 1;
  const vk::DeviceQueueCreateInfo queue{{}, 0, 1, &priority};
  vk::PhysicalDeviceFeatures features;
  // The planes' formats don't stand in the shader.
  features.shaderStorageImageWriteWithoutFormat = VK_TRUE;
  return {physical_, vk::DeviceCreateInfo{{}, queue, {}, {}, &features}};
}

vk::raii::DescriptorSetLayout SoftwareVulkan::MakeBindings() const {
  constexpr auto kStage = vk::ShaderStageFlagBits::eCompute;
  const vk::DescriptorSetLayoutBinding bindings[] = {
      {0, vk::DescriptorType::eSampledImage, 1, kStage},
      {1, vk::DescriptorType::eStorageImage, 1, kStage},
      {2, vk::DescriptorType::eStorageImage, 1, kStage}};
  return {device_, vk::DescriptorSetLayoutCreateInfo{{}, bindings}};
}

vk::raii::Pipeline SoftwareVulkan::MakePipeline(const std::vector<uint32_t>& shader) const {
  const vk::raii::ShaderModule module(device_, vk::ShaderModuleCreateInfo{{}, shader});
  const vk::PipelineShaderStageCreateInfo stage{
      {}, vk::ShaderStageFlagBits::eCompute, *module, "main"};
  return {device_, nullptr, vk::ComputePipelineCreateInfo{{}, stage, *layout_}};
}

vk::raii::DeviceMemory SoftwareVulkan::Allocate(const vk::MemoryRequirements& wanted,
                                                vk::MemoryPropertyFlags flags) const {
  const vk::PhysicalDeviceMemoryProperties memory = physical_.getMemoryProperties();
  for (uint32_t type = 0; type < memory.memoryTypeCount; ++type) {
    const bool allowed = (wanted.memoryTypeBits >> type & 1) != 0;
    if (allowed && (memory.memoryTypes[type].propertyFlags & flags) == flags) {
      return {device_, vk::MemoryAllocateInfo{wanted.size, type}};
    }
  }
  throw std::runtime_error("no memory of the wanted kind");
}

SoftwareVulkan::Image SoftwareVulkan::MakeImage(vk::Extent3D size, vk::Format format,
                                                vk::ImageUsageFlags usage) const {
  vk::raii::Image image(device_, vk::ImageCreateInfo{{},
                                                     vk::ImageType::e2D,
                                                     format,
                                                     size,
                                                     1,
                                                     1,
                                                     vk::SampleCountFlagBits::e1,
                                                     vk::ImageTiling::eOptimal,
                                                     usage});
  vk::raii::DeviceMemory memory = Allocate(image.getMemoryRequirements(), {});
  image.bindMemory(*memory, 0);
  vk::raii::ImageView view(
      device_,
      vk::ImageViewCreateInfo{{}, *image, vk::ImageViewType::e2D, format, {}, kWholeImage});
  return {std::move(image), std::move(memory), std::move(view), size};
}

SoftwareVulkan::Buffer SoftwareVulkan::MakeBuffer(size_t bytes) const {
  using Usage = vk::BufferUsageFlagBits;
  vk::raii::Buffer buffer(
      device_, vk::BufferCreateInfo{{}, bytes, Usage::eTransferSrc | Usage::eTransferDst});
  vk::raii::DeviceMemory memory =
      Allocate(buffer.getMemoryRequirements(), vk::MemoryPropertyFlagBits::eHostVisible |
                                                   vk::MemoryPropertyFlagBits::eHostCoherent);
  buffer.bindMemory(*memory, 0);
  auto* mapped = static_cast<uint8_t*>(memory.mapMemory(0, VK_WHOLE_SIZE));
  return {std::move(buffer), std::move(memory), mapped};
}

vk::raii::DescriptorSet SoftwareVulkan::Bind(const std::vector<const Image*>& images) const {
  vk::raii::DescriptorSet set =
      std::move(vk::raii::DescriptorSets(device_, {*descriptors_, *bindings_}).front());
  for (uint32_t binding = 0; binding < images.size(); ++binding) {
    const vk::DescriptorImageInfo info{{}, *images[binding]->view, vk::ImageLayout::eGeneral};
    const auto type =
        binding == 0 ? vk::DescriptorType::eSampledImage : vk::DescriptorType::eStorageImage;
    device_.updateDescriptorSets(vk::WriteDescriptorSet{*set, binding, 0, type, info}, {});
  }
  return set;
}

void SoftwareVulkan::Submit(const vk::raii::CommandBuffer& commands) const {
  const vk::raii::Queue queue = device_.getQueue(0, 0);
  queue.submit(vk::SubmitInfo{{}, {}, *commands});
  queue.waitIdle();
}

}  // namespace Veldrift
